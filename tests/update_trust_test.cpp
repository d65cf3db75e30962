// Whole update cycles that meet hostile offers, earlier documents, wrong clocks and staged updates.
#include "tests/update_fixture.h"

namespace teravolant {
namespace {

using namespace fixtures;

/// Changes a member of the document that is not signed. A null removes it.
auto member(const char* name, const Value& value) {
    return [=](Update& update) {
        update.document[name] = value;
        std::erase_if(update.document, [](const auto& entry) { return entry.second.isNull(); });
    };
}

/// Changes a line of the signed offer.
auto line(const char* name, const std::string& value) {
    return [=](Update& update) { update.state(name, value); };
}

TEST(HostileOffer, IsRefusedAndChangesNothing) {
    constexpr const char* kNoKey = "was made by a key of this bundle";
    expectEachRefused({
        {"same version", member("version", "1.0.0.1"), "is not older than"},
        {"no version", member("version", {}), "(null) is illegal version"},
        {"number", member("version", 2.5), "2.5 is illegal version"},
        {"another version", member("version", "1.0.0.3"), "the document's is 1.0.0.3"},
        {"plain http", member("url", "http://updates.example/archive"), "“url”"},
        {"no offer", member("offer", {}), "has no “offer”"},
        {"another offer", member("offer", "teravolant-offer 1\n"), kNoKey},
        {"no signatures", member("signatures", {}), "has no “signatures”"},
        {"one string", member("signatures", "x"), "has no “signatures”"},
        {"17 signatures", member("signatures", Value::Array(17, "x")), "more than 16"},
        {"a number", member("signatures", Value::Array{1}), "are not strings"},
        {"no Base64", member("signatures", Value::Array{"x", ""}), kNoKey},
        {"stranger's key", [](Update& u) { u.sign(*SigningKey::generate()); }, kNoKey},
        {"no key", [](Update& u) { u.installation.publicKeys = {}; }, "has no public key"},
        {"other product", line("identifier", kIdentifier + ".other"), "its “identifier” is"},
        {"alpha", line("version", "99.99.99.1"), "a pre-release version to a release version"},
        {"release", [](Update& u) { u.installation.bundleVersion = "99.99.99.1"; },
         "a release version to a pre-release version"},
        {"expired", line("expires", "2026-11-23T00:00:00Z"), "it expired at 2026-11-23T00:00:00Z"},
        {"withdraws itself", line("withdrawn", "1.0.0.9 01.0.0.2"), "it is withdrawn"},
        {"too small", line("size", "7"), "the server has more than the 7"},
        {"too large", line("size", "10000000"), "it ends after"},
        {"far too large", line("size", "1000000000000000000"), "more bytes on the"},
        {"large tree", line("unpacked-size", "9000000000000000000"), "more bytes on the"},
        {"wrong digest", line("digest", std::string(64, '0')), "is not the one"},
        {"wrong tree", line("tree", std::string(64, '0')), "the digest of its tree"},
    });
}

TEST(HostileOffer, IsNotTakenFromThePast) {
    // Each document replaces the one before; the last column tells whether it is trusted.
    struct Document {
        const char* issued;
        const char* version;
        const char* refusal;
    };
    const Document series[] = {
        {"2026-11-01T00:00:00Z", "1.0.0.1", ""},
        {"2026-11-20T00:00:00Z", "1.0.0.1", ""},
        {"2026-11-19T23:59:59Z", "1.0.0.2", "before a document of 2026-11-20T00:00:00Z"},
        {"2026-11-20T00:00:00Z", "1.0.0.1", ""},  // A mirror sends it again.
        {"2027-11-20T00:00:00Z", "1.0.0.1", ""},  // The publisher's clock is ahead.
        {"2026-11-25T00:00:00Z", "1.0.0.2", "before a document of 2027-11-20T00:00:00Z"},
    };
    Update update;
    for (const auto& [issued, version, refusal] : series) {
        update.lines["issued"] = issued;
        update.state("version", version);
        update.expectRefused(*refusal == '\0' ? "is not older than" : refusal);
    }
    // Also if the order can be read but not written.
    const fs::path preferences = update.folder.path() / "Zelto";
    fs::remove(preferences / "history.plist.lock");
    fs::permissions(preferences, fs::perms::owner_write, fs::perm_options::remove);
    update.expectRefused("before a document");
    fs::permissions(preferences, fs::perms::owner_write, fs::perm_options::add);
    // A rotated key begins a new order; a document with both keys is bound by the order of each.
    update.installation.publicKeys.push_back(*kSpareKey.publicKey());
    const std::string earlier = *update.document["signatures"].array()->front().text();
    update.sign(kSpareKey);
    update.document["signatures"].array()->push_back(earlier);
    update.expectRefused("before a document");
    update.document["signatures"].array()->pop_back();
    update.expectInstalled();
}

TEST(Clock, DecidesOnlyWhatExpires) {
    using std::chrono::sys_days;
    using std::chrono::year;
    struct Case {
        const char* situation;
        std::chrono::sys_seconds clock, built;
        bool isInstalled;
    };
    const Case table[] = {
        {"1970", {}, {}, true},
        {"1970, a newer build", {}, sys_days(year(2026) / 12 / 1), false},
        {"a year back", sys_days(year(2025) / 11 / 23), sys_days(year(2026) / 11 / 1), true},
        {"a year ahead", sys_days(year(2027) / 11 / 23), {}, false},
        {"the last second", sys_days(year(2026) / 12 / 1) - 1s, {}, true},
    };
    for (const auto& [situation, clock, built, isInstalled] : table) {
        SCOPED_TRACE(situation);
        Update update;
        update.wallTime = clock;
        update.installation.buildTime = built;
        update.state("expires", "2026-12-01T00:00:00Z");
        isInstalled ? update.expectInstalled() : update.expectRefused("it expired at");
    }
}

TEST(Silence, IsLoggedAfterThirtyDays) {
    Update update;
    update.feedAnswers.assign(4, {204});
    for (const auto& [later, days] : {std::pair(0h, 0), {719h, 0}, {1h, 30}, {-2000h, 0}}) {
        update.wallTime += later;
        update.log.clear();
        EXPECT_TRUE(update.run());
        const std::string told = "no valid signed document for " + std::to_string(days) + " days";
        EXPECT_EQ(update.log.find("no valid signed") != std::string::npos, days > 0);
        EXPECT_TRUE(days == 0 || update.log.find(told) != std::string::npos) << update.log;
    }
    // A signed document that offers nothing new counts, an expired one does not.
    update.state("version", "1.0.0.1");
    update.log.clear();
    for (int month = 0; month < 2; ++month) {
        update.wallTime += 719h;
        update.expectRefused("is not older than");
    }
    EXPECT_EQ(update.log.find("no valid signed"), std::string::npos) << update.log;
    update.state("expires", "2026-01-01T00:00:00Z");
    update.wallTime += 721h;
    update.expectRefused("is not older than");
    EXPECT_NE(update.log.find("for 30 days"), std::string::npos) << update.log;
}

TEST(Rollout, WaitsForItsTurnAndSendsNoIdentity) {
    Update update;
    update.state("rollout", "0");
    EXPECT_FALSE(update.run()->has_value());
    EXPECT_NE(update.log.find("is offered to 0 % of the installations"), std::string::npos);
    EXPECT_TRUE(update.ranges.empty());
    const auto localId = UserDefaults::forDomain("history").objectForKey("UpdateLocalId");
    ASSERT_TRUE(localId && localId->data() != nullptr && localId->data()->size() == 16U);
    const std::string target = "/feed?1.0.0.1";
    const std::pair<const char*, const char*> overrides[] = {
        {"floor", "1.0.0.2"}, {"withdrawn", "1.0.0.1"}, {"rollout", "100"}, {"rollout", "99"}};
    for (const auto& [name, value] : overrides) {
        SCOPED_TRACE(name);
        Update another;
        ASSERT_FALSE(
            UserDefaults::forDomain("history").setObject(Value::Data(16), "UpdateLocalId"));
        another.lines["rollout"] = "0";
        another.state(name, value);
        another.expectInstalled();
        const std::string headers = update.sent.front().substr(target.size());
        EXPECT_EQ(another.sent, (std::vector<std::string>{target + headers, "/archive" + headers}));
    }
}

TEST(StagedUpdate, IsWithdrawnByASignedDocumentOnly) {
    struct Case {
        const char* situation;
        std::function<void(Update&)> change;
        bool isKept;
    };
    const Case table[] = {
        {"204", [](Update& u) { u.feedAnswers = {{204}}; }, true},
        {"no server", [](Update& u) { u.feedAnswers.assign(8, {502}); }, true},
        {"not found", [](Update& u) { u.feedAnswers = {{404}}; }, true},
        {"damaged", [](Update& u) { u.feedAnswers = {{.body = "{\"version\":"}}; }, true},
        {"unsigned", member("signatures", {}), true},
        {"older", line("version", "1.0.0.1"), true},
        {"expired", line("expires", "2026-01-01T00:00:00Z"), true},
        {"an earlier document", line("issued", "2026-11-01T00:00:00Z"), true},
        {"less roll-out", line("rollout", "0"), true},
        {"newer, but not to be had",
         [](Update& u) { u.archive[9] ^= 1, u.state("version", "1.0.0.3"); }, true},
        {"withdrawn",
         [](Update& u) { u.lines["version"] = "1.0.0.1", u.state("withdrawn", "1.0.0.2"); }, false},
        {"withdrawn, expired",
         [](Update& u) {
             u.lines["expires"] = "2026-01-01T00:00:00Z", u.state("withdrawn", "1.0.0.2");
         },
         false},
    };
    for (const auto& [situation, change, isKept] : table) {
        SCOPED_TRACE(situation);
        Update update;
        ASSERT_TRUE(update.run());
        const std::string tree = update.lines["tree"];
        change(update);
        const auto outcome = update.run();
        EXPECT_EQ(outcome && *outcome, isKept);
        EXPECT_EQ(fileExists(update.staging), isKept);
        if (isKept && outcome && *outcome) {
            EXPECT_FALSE(installStagedUpdate(update.cache, **outcome, Confirmation::SelfCheck));
            EXPECT_EQ(*digestOfTree(update.installed), tree);
        }
    }
}

TEST(StagedUpdate, IsReturnedOnlyUnderTheLocks) {
    const std::pair<const char*, std::function<Status(Update&)>> table[] = {
        {"no lock after the pause",
         [](Update&) { return updaterError(SQRLUpdaterErrorCheckNotPossible, "no lock"); }},
        {"discarded in the pause",
         [](Update& u) { return discardStaging(u.cache, u.installed), Status(); }},
        {"changed in the pause",
         [](Update& u) {
             std::ofstream(readStagedUpdate(u.cache)->staged / "x");
             return Status();
         }},
    };
    for (const auto& [situation, inPause] : table) {
        SCOPED_TRACE(situation);
        Update update;
        ASSERT_TRUE(update.run());
        update.feedAnswers = {{502}, {204}};
        update.inPause = [&update, &change = inPause] { return change(update); };
        const auto outcome = update.run();
        EXPECT_FALSE(outcome && *outcome);
    }
}

TEST(StagedUpdate, LeavesWhatALinkInItsPlaceLeadsTo) {
    Update update;
    ASSERT_TRUE(update.run());
    const fs::path elsewhere = update.folder.path() / "elsewhere";
    fs::rename(update.staging, elsewhere);
    update.folder.write(elsewhere / "file", "");
    fs::create_directory_symlink(elsewhere, update.staging);
    update.feedAnswers = {{204}};
    EXPECT_TRUE(update.run());
    EXPECT_TRUE(fileExists(elsewhere / "file"));
    update.expectInstalled();
}

TEST(StagedUpdate, HasAnyPath) {
    Update update("caf\xE9\x01");
    update.expectInstalled();
    EXPECT_EQ(update.ranges.size(), 1U);
}

TEST(StagedUpdate, GivesWayToANewerOne) {
    Update update;
    ASSERT_TRUE(update.run());
    fs::remove_all(update.published);
    update.makeBundle(update.published, "1.0.0.3");
    update.publish();
    update.state("version", "1.0.0.3");
    update.expectInstalled();
}

TEST(OtherFeed, MayOfferTheOtherChannel) {
    Update update;
    fs::remove_all(update.published);
    update.makeBundle(update.published, "99.99.99.7");
    update.publish();
    update.state("version", "99.99.99.7");
    update.installation.acceptsBothChannels = true;
    update.expectInstalled();
    EXPECT_NE(update.log.find("another channel: version 99.99.99.7"), std::string::npos);
}

TEST(StagedUpdate, IsUsedOnlyWholeAndInItsPlace) {
    struct Kept {
        const char* situation;
        const char* version = "1.0.0.2";
        fs::path movedTo = {};  ///< From the parent of the staged bundle on, as the next.
        fs::path spoiled = {};
    };
    const Kept table[] = {
        {"untouched"},
        {"not newer", "1.0.0.1"},
        {"a tree elsewhere", "1.0.0.2", "/tmp/elsewhere"},
        {"a place that climbs out", "1.0.0.2", "../../../elsewhere"},
        {"tampered with", "1.0.0.2", {}, "Teravolant.app/Contents/Info.plist"},
        {"no record's form", "1.0.0.2", {}, "../../../../cache/staged.plist"},
    };
    for (const auto& [situation, version, movedTo, spoiled] : table) {
        SCOPED_TRACE(situation);
        Update update;
        StagedUpdate staged = update.run()->value();
        staged.version = version;
        const fs::path parent = staged.staged.parent_path();
        if (!movedTo.empty()) {
            fs::rename(staged.staged, parent / movedTo);
            staged.staged = parent / movedTo;
        }
        ASSERT_FALSE(writeStagedUpdate(update.cache, staged));
        if (!spoiled.empty()) {
            std::ofstream(parent / spoiled) << "<plist";
        }
        ASSERT_TRUE(update.run());
        EXPECT_EQ(Bundle::bundleWithPath(update.installed)->shortVersion(), "1.0.0.1");
        EXPECT_EQ(update.ranges.size(), situation == table[0].situation ? 1U : 2U);
        update.expectInstalled();
    }
}

}  // namespace
}  // namespace teravolant
