#include <gtest/gtest.h>
#include <pthread.h>

#include "platform/preferences.h"
#include "testing/log_reader.h"
#include "updater/client_updater.h"
#include "updater/teravolant_app_delegate.h"

namespace teravolant {
namespace {

using platform::PropertyListValue;
using Dictionary = PropertyListValue::Dictionary;
using Lines = std::vector<std::string>;

const std::string kOperation = "[TeravolantAppDelegate::updateToLatestVersion] ";
const std::string kReleaseHost = TERAVOLANT_RELEASE_UPDATE_HOST;
const std::string kAlphaHost = TERAVOLANT_ALPHA_UPDATE_HOST;

Lines linesOf(const std::string& version, const Lines& locations, const std::string& url) {
    Lines lines = {kOperation + "bundleVersion=" + version};
    for (const std::string& location : locations) {
        lines.push_back(std::string(kOperation).append("infoUpdateServer = ").append(location));
    }
    lines.push_back(kOperation + "NSURLRequest=<NSURLRequest: { URL: " + url + " }>");
    return lines;
}

std::string location(const std::string& host, const std::string& path) {
    return "{\n    host = \"" + host + "\";\n    path = \"" + path + "\";\n    scheme = https;\n}";
}

struct RequestCase {
    TeravolantAppDelegate::Version version;
    std::optional<PropertyListValue> override;
    Lines locations;
    std::string url;
};

class FeedRequest : public ::testing::Test {
  protected:
    ~FeedRequest() override { setOverride(std::nullopt); }

    static void setOverride(const std::optional<PropertyListValue>& value) {
        const auto defaults = platform::UserDefaults::standardUserDefaults();
        ASSERT_FALSE(value ? defaults.setObject(*value, "updateserver")
                           : defaults.removeObjectForKey("updateserver"));
    }
};

TEST_F(FeedRequest, GoesToTheOverrideElseToTheFeedOfTheVersionsChannel) {
    const std::string alpha = location(kAlphaHost, "/teravolant/alpha/release.mac");
    const std::string release = location(kReleaseHost, "/teravolant/release/release.mac");
    const std::string alphaUrl = "https://" + kAlphaHost + "/teravolant/alpha/release.mac?version=";
    const std::string releaseUrl =
        "https://" + kReleaseHost + "/teravolant/release/release.mac?version=";
    const RequestCase cases[] = {
        {"4.30.1.17", {}, {"(null)", release}, releaseUrl + "4.30.1.17"},
        {"99.99.99.1234", {}, {"(null)", alpha}, alphaUrl + "99.99.99.1234"},
        {"99.99.990.1", {}, {"(null)", alpha}, alphaUrl + "99.99.990.1"},
        {"99.99.9.1", {}, {"(null)", release}, releaseUrl + "99.99.9.1"},
        {"1.2 #3", {}, {"(null)", release}, releaseUrl + "1.2%20%233"},
        {{}, {}, {"(null)", release}, releaseUrl + "(null)"},
        {"1.2.3.4", "https://b.example", {"(null)", release}, releaseUrl + "1.2.3.4"},
        {"99.99.99.1",
         Dictionary{{"scheme", "http"}, {"host", "localhost:8443"}, {"path", "/f"}, {"port", "9"}},
         {"{\n    host = \"localhost:8443\";\n    path = \"/f\";\n    port = 9;\n"
          "    scheme = http;\n}"},
         "http://localhost:8443/f?version=99.99.99.1"},
        {"1.2.3.4", Dictionary{{"host", "b"}}, {"{\n    host = b;\n}"}, "//b?version=1.2.3.4"},
        {"1.2.3.4",
         Dictionary{{"host", "b"}, {"path", "f"}, {"scheme", true}},
         {"{\n    host = b;\n    path = f;\n    scheme = 1;\n}"},
         "(null)"},
    };
    for (const RequestCase& test : cases) {
        setOverride(test.override);
        const fixtures::LogReader log;
        TeravolantAppDelegate delegate;
        delegate.updateToLatestVersion(test.version);
        EXPECT_EQ(log.entries(),
                  linesOf(test.version.value_or("(null)"), test.locations, test.url));
        ASSERT_NE(delegate.updater(), nullptr);
        const auto& url = delegate.updater()->updateRequest().url;
        EXPECT_EQ(url ? url->absoluteString() : "(null)", test.url);
    }
}

class WitnessDelegate : public platform::ApplicationDelegate {
  public:
    void applicationDidFinishLaunching(const platform::LaunchNotification& /*unused*/) override {}
    void applicationWillTerminate() override { std::fputs("terminated", stderr); }
};

TEST_F(FeedRequest, CheckThatCanNotBeStartedEndsTheApplication) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const fixtures::LogReader log;
    EXPECT_EXIT(
        {
            // No thread can be started any more: there is no room for such a stack.
            pthread_attr_t attributes;
            pthread_attr_init(&attributes);
            pthread_attr_setstacksize(&attributes, std::size_t{1} << 50);
            pthread_setattr_default_np(&attributes);
            platform::Application::sharedApplication().setDelegate(
                std::make_unique<WitnessDelegate>());
            TeravolantAppDelegate().updateToLatestVersion("1.2.3.4");
        },
        ::testing::ExitedWithCode(0), "terminated");
    const Lines entries = log.entries();
    ASSERT_EQ(entries.size(), 5U);
    EXPECT_TRUE(entries.back().starts_with(kOperation + "e=")) << entries.back();
}

}  // namespace
}  // namespace teravolant
