#include <gtest/gtest.h>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/values/json.h"
#include "tests/fixtures/log_reader.h"
#include "update_framework/updater_error.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using platform::Value;

const std::string kFeed = "https://a.example/teravolant/release/release.mac?version=4.30.1.17";

/// Returns the result of an updater whose request for `url` received `body`.
platform::Result<platform::SQRLUpdate> read(const std::string& body,
                                            const std::string& url = kFeed) {
    const ClientUpdater updater(platform::URLRequest{platform::URL(url)});
    return updater.updateFromJSONData(body).subscribe();
}

TEST(FeedResponse, TakesAddressElseNameInFeedFolder) {
    const std::string folder = "https://a.example/teravolant/release/";
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {kFeed, R"("url":"https://b.example/u.zip","name":"other.zip")", "https://b.example/u.zip"},
        {kFeed, R"("name":"u.zip")", folder + "u.zip"},
        {"https://a.example/f?version=1.2.3/a.4", R"("name":"u.zip")",
         "https://a.example/f?version=1.2.3/u.zip"},
        {"http://localhost:8443/f?version=1.2.3.4", R"("name":"u.zip")",
         "http://localhost:8443/u.zip"},
    };
    for (const auto& [feed, address, expected] : cases) {
        const auto update = read(R"({"version":"4.30.2.5",)" + address + "}", feed);
        ASSERT_TRUE(update) << address << printedForm(update.error());
        EXPECT_EQ(update->updateURL, expected);
    }
}

/// Expects the check to fail with `code` and returns the error.
platform::Error failure(const std::string& body, std::int64_t code, const std::string& suggestion) {
    auto error = read(body).error();
    EXPECT_EQ(error.domain, platform::SQRLUpdaterErrorDomain) << body;
    EXPECT_EQ(error.code, code) << body;
    EXPECT_EQ(error.localizedDescription, "Update check failed");
    EXPECT_EQ(*error.userInformation<std::string>(platform::NSLocalizedRecoverySuggestionErrorKey),
              suggestion);
    return error;
}

TEST(FeedResponse, RefusesBodyThatIsNotJson) {
    for (const std::string body : {"<html>Not found</html>", "", "\"4.30.2.5\""}) {
        const fixtures::LogReader log;
        const auto error = failure(body, platform::SQRLUpdaterErrorInvalidServerBody,
                                   "The server sent an invalid response. Try again later.");
        EXPECT_EQ(*error.userInformation<std::string>(platform::SQRLUpdaterServerDataErrorKey),
                  body);
        EXPECT_EQ(error.underlyingError()->code, platform::NSPropertyListReadCorruptError);
        EXPECT_NE(error.userInformation<std::int64_t>(platform::NSJSONSerializationErrorIndex),
                  nullptr);
        EXPECT_EQ(log.entries(), std::vector<std::string>{"[ClientUpdater::updateFromJSONData]"});
    }
}

TEST(FeedResponse, RefusesInvalidDocumentAndNamesMember) {
    const std::string named = R"({"version":"4.30.2.5","name":"u.zip",)";
    const std::string unnamed = R"({"version":"4.30.2.5",)";
    // The wrong member, the document up to its value, and the values, which a brace follows.
    const std::tuple<std::string, std::string, std::vector<std::string>> table[] = {
        {"", R"([{"version":"4.30.2.5")", {"}]"}},
        {"url", unnamed + R"("other":)", {"1"}},
        {"url", named + R"("url":)", {"null", "\"u.zip\"", "\"http://a.example/u.zip\""}},
        {"url", unnamed + R"("name":)", {"\"a b.zip\""}},
        {"name", unnamed + R"("name":)", {"null", "7", "{}"}},
    };
    for (const auto& [wrongMember, before, values] : table) {
        for (const std::string& value : values) {
            const std::string body = before + value + (wrongMember.empty() ? "" : "}");
            const auto error =
                failure(body, platform::SQRLUpdaterErrorInvalidJSON,
                        "The server sent an invalid JSON response. Try again later.");
            // The error holds the document as received, without the address made from the name.
            EXPECT_EQ(*error.userInformation<Value>(platform::SQRLUpdaterJSONObjectErrorKey),
                      *platform::parseJson(body));
            const platform::Error* const cause = error.underlyingError();
            ASSERT_EQ(cause == nullptr, wrongMember.empty()) << body;
            const std::string told = cause == nullptr ? "“”" : printedForm(*cause);
            EXPECT_NE(told.find("“" + wrongMember + "”"), told.npos) << body << told;
        }
    }
}

}  // namespace
}  // namespace teravolant
