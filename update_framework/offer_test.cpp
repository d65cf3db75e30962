#include "update_framework/offer.h"

#include <algorithm>
#include <cstdlib>

#include <gtest/gtest.h>

#include "platform/core/error.h"
#include "platform/core/utc_time.h"
#include "tests/fixtures/temporary_folder.h"
#include "update_framework/offer_trust.h"
#include "update_framework/tree_digest.h"

namespace teravolant::platform {
namespace {

const std::string kDigest(64, 'a');
const std::string kRequired =
    "identifier=i\nversion=1.0.0.2\nissued=2026-11-23T10:00:00Z\nsize=1\ndigest=" + kDigest +
    "\nunpacked-size=18446744073709551615\ntree=" + kDigest + "\n";

std::string with(const std::string& lines) { return "teravolant-offer 1\n" + kRequired + lines; }

std::string reasonFor(const std::string& text) {
    const auto offer = parseOffer(text);
    return offer ? "" : offer.error().localizedDescription;
}

TEST(Offer, HasEveryLine) {
    const auto offer = parseOffer(
        with("x-unknown=1\nexpires=9999-12-31T23:59:59Z\nfloor=0.9.0.0\nwithdrawn=1.0.0.1 1.2.3-4\n"
             "rollout=0\npatch=1.0.0.1 7 " +
             kDigest + " b\npatch=1.0.0.0 8 " + kDigest + " c\n"));
    ASSERT_TRUE(offer) << offer.error().localizedDescription;
    EXPECT_EQ(offer->identifier + " " + offer->version + " " + *offer->floor, "i 1.0.0.2 0.9.0.0");
    EXPECT_EQ(utcTimeText(offer->issued) + utcTimeText(*offer->expires),
              "2026-11-23T10:00:00Z9999-12-31T23:59:59Z");
    EXPECT_EQ(offer->withdrawn, (std::vector<std::string>{"1.0.0.1", "1.2.3-4"}));
    EXPECT_EQ(offer->rollout, 0U);
    EXPECT_TRUE(offer->size == 1 && offer->unpackedSize == UINT64_MAX);
    EXPECT_TRUE(offer->digest == kDigest && offer->tree == kDigest);
    ASSERT_EQ(offer->patches.size(), 2U);
    EXPECT_EQ(offer->patches[1].fromVersion + offer->patches[1].name, "1.0.0.0c");
}

TEST(Offer, IsRefusedUnlessItHasExactlyTheForm) {
    struct Row {
        std::string text;
        const char* reason;  ///< Empty if the offer is accepted.
    };
    const auto without = [](const std::string& key) {
        std::string lines = kRequired;
        const std::size_t begin = lines.find(key + "=");
        return "teravolant-offer 1\n" + lines.erase(begin, lines.find('\n', begin) + 1 - begin);
    };
    const auto changed = [](const std::string& key, const std::string& value) {
        std::string lines = kRequired;
        const std::size_t begin = lines.find(key + "=") + key.size() + 1;
        return "teravolant-offer 1\n" +
               lines.replace(begin, lines.find('\n', begin) - begin, value);
    };
    std::string unknown;
    while (unknown.size() < 100'000) {
        unknown += "unknown-" + std::to_string(unknown.size()) + "=value\n";
    }
    std::string crlf = with("");
    crlf.insert(crlf.find('\n'), "\r");
    const Row table[] = {
        {with(""), ""},
        {with(unknown), ""},
        {with("unknown=\n"), ""},
        {with("unknown=a=b\n"), ""},
        {"", "line feed"},
        {"\n" + with(""), "begin with"},
        {"teravolant-offer 2\n" + kRequired, "begin with"},
        {kRequired, "begin with"},
        {crlf, "carriage return"},
        {with("x=1"), "line feed"},
        {with("\n"), "KEY=VALUE"},
        {with("x\n"), "KEY=VALUE"},
        {with("=x\n"), "KEY=VALUE"},
        {with("\xFF=x\n"), "UTF-8"},
        {with("x=\xC0\x80\n"), "UTF-8"},
        {with("size=1\n"), "more than one “size”"},
        {with("x=1\nx=1\n"), "more than one “x”"},
        {without("identifier"), "no “identifier”"},
        {without("issued"), "no “issued”"},
        {without("tree"), "no “tree”"},
        {changed("identifier", ""), "“identifier” is malformed"},
        {changed("version", "1.0.0"), "“version” is"},
        {changed("issued", "2026-11-23T10:00:00+00:00"), "“issued” is"},
        {changed("issued", "2026-02-29T10:00:00Z"), "“issued” is"},
        {changed("issued", "2026-11-23T10:00:60Z"), "“issued” is"},
        {changed("size", "0"), "“size” is"},
        {changed("size", "01"), "“size” is"},
        {changed("size", "+1"), "“size” is"},
        {changed("size", ""), "“size” is"},
        {changed("unpacked-size", "18446744073709551616"), "“unpacked-size” is"},
        {changed("digest", std::string(64, 'A')), "“digest” is"},
        {changed("digest", kDigest + "a"), "“digest” is"},
        {changed("tree", std::string(63, 'a')), "“tree” is"},
        {with("expires=never\n"), "“expires” is"},
        {with("floor=1\n"), "“floor” is"},
        {with("withdrawn=\n"), "“withdrawn” is"},
        {with("withdrawn=1.0.0.1  1.0.0.0\n"), "“withdrawn” is"},
        {with("rollout=101\n"), "“rollout” is"},
        {with("rollout=\n"), "“rollout” is"},
        {with("rollout=50%\n"), "“rollout” is"},
        {with("patch=1.0.0.1 0 " + kDigest + " n\n"), "“patch” is"},
        {with("patch=1.0.0.1 1 " + kDigest + "\n"), "“patch” is"},
        {with("patch=1.0.0.1 1 " + kDigest + " ../n\n"), "“patch” is"},
        {with("patch=1.0.0.1 1 " + kDigest + " a b\n"), "“patch” is"},
    };
    for (const auto& [text, reason] : table) {
        const std::string told = reasonFor(text);
        EXPECT_TRUE(*reason == '\0' ? told.empty() : told.find(reason) != told.npos)
            << text.substr(0, 500) << "\n"
            << told;
    }
}

/// The bundle of the example in docs/feed_format.md, whose digest FeedFormat computes in the shell.
TEST(TreeDigest, IsTheDocumentedOne) {
    namespace fs = std::filesystem;
    const fixtures::TemporaryFolder folder;
    const fs::path bundle = folder.path() / "T.app";
    folder.write(bundle / "file", "bundle\n");
    fs::permissions(bundle, fs::perms(0755));
    fs::permissions(bundle / "file", fs::perms(0644));
    fs::create_symlink("file", bundle / "link");
    const std::string documented =
        "4c06b0270b5355734f0449a5a5b1f1c655b8682a1807f2c583c5f163df7f639b";
    for (const char* change : {"chmod 600 file", "echo x > file", "mv file f", "touch new",
                               "mkdir empty", "rm link; ln -s f link", "rm link; echo > link"}) {
        SCOPED_TRACE(change);
        fs::copy(bundle, folder.path() / "copy",
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        ASSERT_EQ(*digestOfTree(folder.path() / "copy"), documented);
        const std::string command = "cd '" + (folder.path() / "copy").string() + "' && " + change;
        ASSERT_EQ(std::system(command.c_str()), 0);
        EXPECT_NE(*digestOfTree(folder.path() / "copy"), documented);
        fs::remove_all(folder.path() / "copy");
    }
}

/// Returns the ids among 1,000 that take the version at this share.
std::vector<int> takersOf(const std::string& version, unsigned share) {
    Offer offer;
    offer.version = version;
    offer.rollout = share;
    std::vector<int> takers;
    for (int id = 0; id < 1000; ++id) {
        std::string localId(16, '\0');
        localId[0] = static_cast<char>(id % 256);
        localId[1] = static_cast<char>(id / 256);
        if (isInRollout(offer, localId)) {
            takers.push_back(id);
        }
    }
    return takers;
}

TEST(Rollout, TakesItsShareAndKeepsTheEarlier) {
    std::vector<int> before;
    for (const unsigned share : {0U, 1U, 10U, 25U, 50U, 99U, 100U}) {
        const auto takers = takersOf("1.0.0.2", share);
        EXPECT_NEAR(static_cast<double>(takers.size()) / 10, share, 2);
        EXPECT_TRUE(std::includes(takers.begin(), takers.end(), before.begin(), before.end()));
        before = takers;
    }
    EXPECT_EQ(before.size(), 1000U);
    // The next version begins with other installations.
    const auto first = takersOf("1.0.0.2", 10);
    const auto next = takersOf("1.0.0.3", 10);
    std::vector<int> both;
    std::set_intersection(first.begin(), first.end(), next.begin(), next.end(),
                          std::back_inserter(both));
    EXPECT_LT(both.size(), first.size() / 3);
}

TEST(Rollout, IsOverriddenByFloorAndWithdrawal) {
    Offer offer;
    offer.version = "1.0.0.9";
    offer.floor = "1.0.0.3";
    offer.withdrawn = {"1.0.0.5", "01.0.0.7"};
    const std::pair<const char*, bool> table[] = {
        {"1.0.0.2", true}, {"1.0.0.3", false},  {"1.0.0.4", false}, {"1.0.0.5", true},
        {"1.0.0.7", true}, {"1.0.0.55", false}, {"0.9.9.9", true},  {"1.0.0.8", false},
    };
    for (const auto& [version, overrides] : table) {
        EXPECT_EQ(overridesRollout(offer, version), overrides) << version;
    }
}

}  // namespace
}  // namespace teravolant::platform
