#include "platform/update_framework/sqrl_update.h"

#include <gtest/gtest.h>

namespace teravolant::platform {
namespace {

using Object = JsonValue::Object;

const Object kWholeOffer = {{"version", "4.30.2.5"},
                            {"url", "https://a.example/update.zip"},
                            {"name", "update.zip"},
                            {"size", std::int64_t{1} << 40},
                            {"sha256", std::string(32, '0') + std::string(32, 'F')},
                            {"signature", "AB+/ab=="},
                            {"unknown", JsonValue::Array{true}}};

TEST(UpdateModel, HoldsWhatTheOfferSays) {
    const auto update = MTLJSONAdapter::modelOfClass<SQRLUpdate>(kWholeOffer);
    ASSERT_TRUE(update) << update.error().localizedDescription;
    EXPECT_EQ(update.value().updateURL, "https://a.example/update.zip");
    EXPECT_EQ(update.value().version, "4.30.2.5");
    EXPECT_EQ(update.value().name, "update.zip");
    EXPECT_EQ(update.value().size, std::uint64_t{1} << 40);
    EXPECT_EQ(update.value().sha256, std::string(32, '0') + std::string(32, 'F'));
    EXPECT_EQ(update.value().signature, "AB+/ab==");
    EXPECT_TRUE(MTLJSONAdapter::modelOfClass<SQRLUpdate>(
        {{"version", "4.30.2.5"}, {"url", "http://127.0.0.1:8080/update.zip"}}));
}

struct MemberCase {
    std::string member;
    std::vector<JsonValue> values;
};

TEST(UpdateModel, RefusalNamesTheMemberThatIsWrong) {
    const JsonValue null;
    const MemberCase cases[] = {
        {"url", {null, true, "", "update.zip", "http://a.example/update.zip"}},
        {"version", {null, std::int64_t{4}}},
        {"name", {null, 1.5, Object()}},
        {"size", {null, std::int64_t{0}, std::int64_t{-1}, 10.0, "10", true}},
        {"sha256", {null, "", std::string(63, '0'), std::string(65, '0'), std::string(64, 'g')}},
        {"signature", {null, "", "ABC", "A===", "AB=C", "AB==ABC=", "AB -", std::int64_t{1}}},
    };
    for (const MemberCase& test : cases) {
        for (const JsonValue& value : test.values) {
            Object offer = kWholeOffer;
            offer[test.member] = value;
            const auto update = MTLJSONAdapter::modelOfClass<SQRLUpdate>(offer);
            ASSERT_FALSE(update) << test.member << " " << serialiseJson(value);
            EXPECT_NE(update.error().localizedDescription.find("“" + test.member + "”"),
                      std::string::npos)
                << update.error().localizedDescription;
            EXPECT_EQ(update.error().code, MTLJSONAdapterErrorInvalidMember);
        }
    }
    for (const char* member : {"url", "version"}) {
        Object offer = kWholeOffer;
        offer.erase(member);
        const auto update = MTLJSONAdapter::modelOfClass<SQRLUpdate>(offer);
        ASSERT_FALSE(update);
        EXPECT_EQ(update.error().code, MTLJSONAdapterErrorMissingMember);
    }
}

}  // namespace
}  // namespace teravolant::platform
