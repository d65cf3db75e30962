#include <gtest/gtest.h>
#include <pthread.h>

#include "platform/system/preferences.h"
#include "tests/fixtures/log_reader.h"
#include "updater/client_updater.h"
#include "updater/teravolant_app_delegate.h"

namespace teravolant {

using platform::Value;
using Dictionary = Value::Dictionary;

const std::string kOperation = "[TeravolantAppDelegate::updateToLatestVersion] ";

TEST(FeedRequest, UsesOverrideElseFeedOfChannel) {
    const std::string alpha =
        "https://" TERAVOLANT_ALPHA_UPDATE_HOST "/teravolant/alpha/release.mac?version=";
    const std::string release =
        "https://" TERAVOLANT_RELEASE_UPDATE_HOST "/teravolant/release/release.mac?version=";
    const std::tuple<TeravolantAppDelegate::Version, Value, std::string> table[] = {
        {"99.99.990.1", "", alpha + "99.99.990.1"},
        {"99.99.9.1", "", release + "99.99.9.1"},
        {"1.2 #3", "", release + "1.2%20%233"},
        {{}, "", release + "(null)"},
        {"1.2.3.4", "https://b.example", release + "1.2.3.4"},
        {"99.99.99.1",
         Dictionary{{"scheme", "http"}, {"host", "localhost:8443"}, {"path", "/f"}, {"port", "9"}},
         "http://localhost:8443/f?version=99.99.99.1"},
        {"1.2.3.4", Dictionary{{"host", "b"}}, "//b?version=1.2.3.4"},
        {"1.2.3.4", Dictionary{{"host", "b"}, {"path", "f"}}, "(null)"},
    };
    const auto defaults = platform::UserDefaults::standardUserDefaults();
    for (const auto& [version, override, url] : table) {
        ASSERT_FALSE(override == Value("") ? defaults.removeObjectForKey("updateserver")
                                           : defaults.setObject(override, "updateserver"));
        const fixtures::LogReader log;
        TeravolantAppDelegate delegate;
        delegate.updateToLatestVersion(version);
        const auto& requested = delegate.updater()->updateRequest().url;
        EXPECT_EQ(requested ? requested->absoluteString() : "(null)", url);
        EXPECT_EQ(log.entries().front(),
                  kOperation + "bundleVersion=" + version.value_or("(null)"));
        EXPECT_EQ(log.entries().back(),
                  kOperation + "NSURLRequest=<NSURLRequest: { URL: " + url + " }>");
    }
    ASSERT_FALSE(defaults.removeObjectForKey("updateserver"));
}

TEST(FeedRequest, TerminatesIfNoCheckCanStart) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const fixtures::LogReader log;
    EXPECT_EXIT(
        {
            // No thread can start: no address space has room for such a stack.
            pthread_attr_t attributes;
            pthread_attr_init(&attributes);
            pthread_attr_setstacksize(&attributes, std::size_t{1} << 50);
            pthread_setattr_default_np(&attributes);
            platform::Application::sharedApplication().setDelegate(
                std::make_unique<TeravolantAppDelegate>());
            TeravolantAppDelegate().updateToLatestVersion("1.2.3.4");
        },
        ::testing::ExitedWithCode(0), "");
    const auto entries = log.entries();
    ASSERT_EQ(entries.size(), 6U);
    EXPECT_EQ(entries[1], kOperation + "infoUpdateServer = (null)");
    EXPECT_EQ(entries[2], kOperation +
                              "infoUpdateServer = {\n    host = \"" TERAVOLANT_RELEASE_UPDATE_HOST
                              "\";\n    path = \"/teravolant/release/release.mac\";\n"
                              "    scheme = https;\n}");
    EXPECT_TRUE(entries[4].starts_with(kOperation + "e=")) << entries[4];
    EXPECT_EQ(entries[5], "[TeravolantAppDelegate::applicationWillTerminate]");
}

}  // namespace teravolant
