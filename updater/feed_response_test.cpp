#include <gtest/gtest.h>

#include "platform/json.h"
#include "testing/log_reader.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using platform::Error;
using platform::JsonValue;

const std::string kFeed = "https://a.example/teravolant/release/release.mac?version=4.30.1.17";

/// Answers what the updater with a request for that URL makes of the body.
platform::Result<platform::SQRLUpdate> read(const std::string& body,
                                            const std::optional<std::string>& url = kFeed) {
    const auto updater = std::make_shared<ClientUpdater>(
        platform::URLRequest{url ? std::optional(platform::URL(*url)) : std::nullopt});
    return updater->updateFromJSONData(body).subscribe();
}

struct AddressCase {
    std::string feed;
    std::string offer;
    std::string address;
};

TEST(FeedResponse, OfferHasItsOwnAddressOrTheOneOfItsNameInTheFeedsFolder) {
    const std::string folder = "https://a.example/teravolant/release/";
    const AddressCase cases[] = {
        {kFeed, R"({"version":"4.30.2.5","url":"https://b.example/u.zip"})",
         "https://b.example/u.zip"},
        {kFeed, R"({"version":"4.30.2.5","url":"https://b.example/u.zip","name":"other.zip"})",
         "https://b.example/u.zip"},
        {kFeed, R"({"version":"4.30.2.5","name":"u.zip"})", folder + "u.zip"},
        {kFeed, R"({"version":"4.30.2.5","name":"../u.zip"})", folder + "../u.zip"},
        {"https://a.example/f?version=1.2.3/a.4", R"({"version":"2.0.0.0","name":"u.zip"})",
         "https://a.example/f?version=1.2.3/u.zip"},
        {"http://localhost:8443/f?version=1.2.3.4", R"({"version":"2.0.0.0","name":"u.zip"})",
         "http://localhost:8443/u.zip"},
    };
    for (const AddressCase& test : cases) {
        const auto update = read(test.offer, test.feed);
        ASSERT_TRUE(update) << test.offer << printedForm(update.error());
        EXPECT_EQ(update.value().updateURL, test.address);
    }
}

void expectCheckFailed(const Error& error, std::int64_t code, const std::string& suggestion,
                       std::size_t entries) {
    EXPECT_EQ(error.domain, platform::SQRLUpdaterErrorDomain);
    EXPECT_EQ(error.code, code);
    EXPECT_EQ(error.localizedDescription, "Update check failed");
    EXPECT_EQ(*error.userInformation<std::string>(platform::NSLocalizedRecoverySuggestionErrorKey),
              suggestion);
    EXPECT_EQ(error.userInfo.size(), entries);
}

TEST(FeedResponse, BodyThatIsNotJsonIsAnInvalidServerBody) {
    for (const std::string body : {"<html>Not found</html>", "", "\"4.30.2.5\""}) {
        const auto update = read(body);
        ASSERT_FALSE(update);
        const Error& error = update.error();
        expectCheckFailed(error, platform::SQRLUpdaterErrorInvalidServerBody,
                          "The server sent an invalid response. Try again later.", 4);
        EXPECT_EQ(*error.userInformation<std::string>(platform::SQRLUpdaterServerDataErrorKey),
                  body);
        ASSERT_NE(error.underlyingError(), nullptr);
        EXPECT_EQ(error.underlyingError()->code, platform::NSPropertyListReadCorruptError);
        // The parser's own entry.
        EXPECT_NE(error.userInformation<std::int64_t>(platform::NSJSONSerializationErrorIndex),
                  nullptr);
    }
}

/// Expects the invalid-JSON error for the body; its underlying error names the member, if any.
void expectInvalidJson(const std::string& body, const std::string& wrongMember) {
    const auto update = read(body);
    ASSERT_FALSE(update) << body;
    const Error& error = update.error();
    expectCheckFailed(error, platform::SQRLUpdaterErrorInvalidJSON,
                      "The server sent an invalid JSON response. Try again later.",
                      wrongMember.empty() ? 2 : 3);
    const auto* const document = error.userInformation<std::shared_ptr<const JsonValue>>(
        platform::SQRLUpdaterJSONObjectErrorKey);
    ASSERT_NE(document, nullptr);
    // The document as it was received, without an address made from its name.
    EXPECT_EQ(**document, platform::parseJson(body).value());
    ASSERT_EQ(error.underlyingError() == nullptr, wrongMember.empty()) << body;
    if (!wrongMember.empty()) {
        EXPECT_NE(error.underlyingError()->localizedDescription.find("“" + wrongMember + "”"),
                  std::string::npos)
            << body << printedForm(error);
    }
}

struct MemberCase {
    std::string member;
    std::vector<std::string> values;
};

TEST(FeedResponse, DocumentThatMakesNoUpdateIsInvalidJson) {
    expectInvalidJson(R"([{"version":"4.30.2.5"}])", "");
    expectInvalidJson(R"({"version":"4.30.2.5"})", "url");
    const std::string digest = '"' + std::string(63, 'a');
    const MemberCase cases[] = {
        {"url", {"null", "true", "\"\"", "\"u.zip\"", "\"http://a.example/u.zip\""}},
        {"name", {"null", "7", "{}", "\"a b.zip\""}},
        {"size", {"null", "0", "-1", "10.0", "\"10\"", "true"}},
        {"sha256", {"null", "\"\"", digest + '"', digest + "aa\"", digest + "g\""}},
        {"signature", {"null", "\"\"", "\"ABC\"", "\"A===\"", "\"AB=C\"", "\"AB -\"", "1"}},
    };
    for (const MemberCase& test : cases) {
        for (const std::string& value : test.values) {
            const bool unfit = value == "\"a b.zip\"";  // A text, but not as part of an address.
            const std::string name = test.member == "name" ? "" : R"("name":"u.zip",)";
            expectInvalidJson(std::string("{")
                                  .append(name)
                                  .append(R"("version":"4.30.2.5",")")
                                  .append(test.member)
                                  .append("\":")
                                  .append(value)
                                  .append("}"),
                              unfit ? "url" : test.member);
        }
    }
}

TEST(FeedResponse, UpdateHoldsWhatTheOfferSays) {
    const std::string digest(64, 'F');
    const auto update =
        read(R"({"version":"4.30.2.5","name":"u.zip","size":5000000000,"sha256":")" + digest +
             R"(","signature":"AB+/ab==","other":[]})");
    ASSERT_TRUE(update) << printedForm(update.error());
    EXPECT_EQ(update.value().version, "4.30.2.5");
    EXPECT_EQ(update.value().name, "u.zip");
    EXPECT_EQ(update.value().size, 5'000'000'000U);
    EXPECT_EQ(update.value().sha256, digest);
    EXPECT_EQ(update.value().signature, "AB+/ab==");
}

TEST(FeedResponse, IsReadAnewByEachSubscriptionAndLoggedByTheCallAlone) {
    const fixtures::LogReader log;
    std::optional<platform::RACSignal<platform::SQRLUpdate>> signal;
    {
        const ClientUpdater updater(platform::URLRequest{platform::URL(kFeed)});
        signal = updater.updateFromJSONData(R"({"version":"4.30.1.17"})");
    }
    EXPECT_FALSE(signal->subscribe());
    EXPECT_FALSE(signal->subscribe());
    EXPECT_EQ(log.entries(), std::vector<std::string>{"[ClientUpdater::updateFromJSONData]"});
}

}  // namespace
}  // namespace teravolant
