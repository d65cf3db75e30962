// Whole update cycles that meet hostile offers, faulty servers and what earlier cycles left.
#include <fcntl.h>
#include <gtest/gtest.h>

#include "platform/archives/archives.h"
#include "platform/crypto/digests.h"
#include "platform/crypto/signing_key.h"
#include "platform/files/files.h"
#include "platform/system/process.h"
#include "platform/values/json.h"
#include "platform/values/property_list.h"
#include "tests/fixtures/http_server.h"
#include "tests/fixtures/temporary_folder.h"
#include "update_framework/tree_digest.h"
#include "update_framework/update_cycle.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

namespace fs = std::filesystem;
using namespace fixtures;
using namespace platform;
using namespace std::chrono_literals;

const std::string kIdentifier = TEST_BUNDLE_IDENTIFIER;
const std::string kTag = "\"tag\"";  ///< Of the archive.

const SigningKey kPublisher = *SigningKey::generate();

/// An installed bundle of version 1.0.0.1, and a server that offers version 1.0.0.2. A test changes
/// what the server sends between the cycles; only a cycle has a server.
struct Update {
    Update() {
        setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
        fs::create_directory(cache);
        makeBundle(installed, "1.0.0.1");
        makeBundle(published, "1.0.0.2");
        publish();
    }

    void makeBundle(const fs::path& path, const std::string& version) const {
        folder.write(path / "Contents/Info.plist", serialisePropertyList(Value::Dictionary{
                                                       {"CFBundleIdentifier", kIdentifier},
                                                       {"CFBundleShortVersionString", version}}));
        fs::create_directory(path / "Contents/MacOS");
        fs::copy("/bin/true", path / "Contents/MacOS/Teravolant");
    }

    /// Packs the published bundle and offers it.
    void publish() {
        EXPECT_FALSE(packFolder(published.parent_path(), folder.path() / "packed"));
        archive = *contentsOfFile(folder.path() / "packed");
        lines = {{"identifier", kIdentifier},
                 {"version", "1.0.0.2"},
                 {"issued", "2026-11-22T00:00:00Z"},
                 {"size", std::to_string(archive.size())},
                 {"digest", digestOf(archive)},
                 {"unpacked-size", "1000"},
                 {"tree", *digestOfTree(unpackedTree())}};
        sign(kPublisher);
    }

    /// Returns the published bundle with the permissions that the archive gives it.
    fs::path unpackedTree() const {
        const fs::path place = folder.path() / "unpacked";
        fs::remove_all(place);
        fs::create_directory(place);
        FileDescriptor packed(open((folder.path() / "packed").c_str(), O_RDONLY));
        FileDescriptor target(open(place.c_str(), O_RDONLY | O_DIRECTORY));
        EXPECT_FALSE(unpackArchive(packed.get(), std::move(target)));
        return place / "published/Teravolant.app";
    }

    static std::string digestOf(std::string_view bytes) {
        Digest digest;
        digest.update(bytes);
        return digest.finish();
    }

    /// Offers what `lines` states.
    void sign(const SigningKey& key) {
        std::string text = "teravolant-offer 1\n";
        for (const auto& [name, value] : lines) {
            text += name + "=" + value + "\n";
        }
        document = {{"name", "archive"},
                    {"version", lines["version"]},
                    {"offer", text},
                    {"signatures", Value::Array{*key.sign(text)}}};
    }

    /// Offers the same with one more or another line.
    void state(const std::string& name, const std::string& value) {
        lines[name] = value;
        sign(kPublisher);
    }

    /// One cycle, with nothing installed at its end. Its pauses take no time.
    Result<std::optional<StagedUpdate>> run() {
        const HttpServer server([this](const ReceivedRequest& request) {
            sent.push_back(request.target);
            for (const auto& [name, value] : request.headers) {
                sent.back() += name == "Host" ? "" : "\n" + name + ": " + value;
            }
            if (request.target != "/archive") {
                return take(feedAnswers, ServerAnswer{.body = *serialiseJson(document)});
            }
            ranges.push_back(request.header("Range"));
            return take(archiveAnswers, answerWithRange(request, archive, kTag));
        });
        const std::string url = server.url("/feed?1.0.0.1");
        const ClientUpdater updater(URLRequest{URL(url)});
        pauses.clear();
        return runUpdateCycle(
            {.feedURL = url,
             .bundlePath = installed,
             .installation = installation,
             .cacheFolder = cache,
             .history = DocumentHistory(UserDefaults::forDomain("history")),
             .updateFromJSONData = [&](auto body) { return updater.updateFromJSONData(body); },
             .matchingBundle =
                 [&](auto unpacked) {
                     return updater.updateBundleMatchingCurrentApplicationInDirectory(unpacked);
                 },
             .downloadBegins = [] {},
             .now = [this] { return time; },
             .pauseUntil =
                 [this](Clock::Time until) {
                     pauses.push_back((until - time) / 1s);
                     time = until;
                     return Status();
                 },
             .log = [this](const std::string& message) { log += message + "\n"; },
             .wallTime = [this] { return wallTime; },
             .transfer = {.stallTimeout = 300ms}});
    }

    /// Removes and returns the first of the faulty answers, if one is left, else returns `right`.
    static ServerAnswer take(std::vector<ServerAnswer>& faulty, const ServerAnswer& right) {
        const ServerAnswer answer = faulty.empty() ? right : faulty.front();
        faulty.erase(faulty.begin(), faulty.begin() + (faulty.empty() ? 0 : 1));
        return answer;
    }

    /// A cycle must fail with an error that contains `reason`, and change nothing.
    void expectRefused(const std::string& reason) {
        const std::string before = *digestOfTree(installed);
        const auto outcome = run();
        ASSERT_FALSE(outcome) << "accepted";
        const std::string told = printedForm(outcome.error());
        EXPECT_NE(told.find(reason), told.npos) << reason << "\n" << told.substr(0, 1000);
        EXPECT_EQ(*digestOfTree(installed), before);
        EXPECT_FALSE(fileExists(staging) || fileExists(cache / "staged.plist"));
    }

    /// A cycle must find the update, and its installation leave nothing else.
    void expectInstalled() {
        const auto outcome = run();
        ASSERT_TRUE(outcome) << printedForm(outcome.error());
        EXPECT_FALSE(installStagedUpdate(cache, outcome->value()));
        EXPECT_EQ(*digestOfTree(installed), lines["tree"]);
        EXPECT_TRUE(!fileExists(staging) &&
                    (fs::remove(cache / "refused.plist"), fs::is_empty(cache)));
    }

    const TemporaryFolder folder;
    const fs::path cache = folder.path() / "cache";
    const fs::path installed = folder.path() / "installed/Teravolant.app";
    const fs::path published = folder.path() / "published/Teravolant.app";
    const fs::path executable = published / "Contents/MacOS/Teravolant";
    const fs::path staging = stagingFolderFor(installed);
    Installation installation = {.bundleIdentifier = kIdentifier,
                                 .bundleVersion = "1.0.0.1",
                                 .publicKeys = {"none", *kPublisher.publicKey()}};
    std::map<std::string, std::string> lines;  ///< Of the offer.
    Value::Dictionary document;
    std::string archive;
    std::string log;
    std::vector<std::string> sent;                          ///< The requests, without the port.
    std::vector<ServerAnswer> feedAnswers, archiveAnswers;  ///< Before the right ones.
    std::vector<std::string> ranges;  ///< Asked for of the archive so far; empty for all of it.
    Clock::Time time = {};
    std::chrono::sys_seconds wallTime = std::chrono::sys_days(std::chrono::year(2026) / 11 / 23);
    std::vector<std::int64_t> pauses;  ///< Of the last cycle, in seconds.
};

struct Row {
    const char* situation;
    std::function<void(Update&)> change;
    const char* reason;
};

void expectEachRefused(const std::vector<Row>& table) {
    for (const auto& [situation, change, reason] : table) {
        SCOPED_TRACE(situation);
        Update update;
        change(update);
        update.expectRefused(reason);
    }
}

TEST(FaultyServer, IsAnErrorThatNamesTheFault) {
    const auto feed = [](const ServerAnswer& answer) {
        return [=](Update& update) { update.feedAnswers.assign(11, answer); };
    };
    expectEachRefused({
        {"404", feed({404}), "status 404"},
        {"empty", feed({200}), "status 200 and an empty body"},
        {"HTML", feed({.body = "<!DOCTYPE html>"}), "Update check failed"},
        {"2 MiB", feed({.body = std::string(2'097'152, ' '), .chunked = true}), "larger than"},
        {"redirect loop", feed({302, {{"Location", "feed"}}}), "redirect"},
        {"no archive", [](Update& u) { u.archiveAnswers = {{404}}; }, "status 404: http://127"},
        {"longer, not announced",
         [](Update& u) { u.archiveAnswers = {{.body = u.archive + '\n', .chunked = true}}; },
         "sends more than"},
    });
}

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
        {"many digits", member("version", std::string(1'000'000, '0')), "0 is illegal version"},
        {"many stops", member("version", std::string(1'000'000, '.')), ". is illegal version"},
        {"another version", member("version", "1.0.0.3"), "the document's is 1.0.0.3"},
        {"plain http", member("url", "http://updates.example/archive"), "“url”"},
        {"no offer", member("offer", {}), "has no “offer”"},
        {"no text", member("offer", 1), "has no “offer”"},
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
        {"malformed", line("floor", "1"), "its “floor” is malformed"},
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
    // A rotated key begins a new order; a document with both keys is bound by the order of each.
    const SigningKey next = *SigningKey::generate();
    update.installation.publicKeys.push_back(*next.publicKey());
    const std::string earlier = *update.document["signatures"].array()->front().text();
    update.sign(next);
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
    for (int month = 0; month < 2; ++month) {
        update.wallTime += 719h;
        update.expectRefused("is not older than");
    }
    EXPECT_EQ(update.log.find("valid signed document", 200), std::string::npos) << update.log;
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
            EXPECT_FALSE(installStagedUpdate(update.cache, **outcome));
            EXPECT_EQ(*digestOfTree(update.installed), tree);
        }
    }
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

TEST(HostileArchive, IsRefusedAndChangesNothing) {
    // Runs a shell command beside the executable of the published bundle.
    const auto after = [](const char* command) {
        return [=](Update& update) {
            const fs::path folder = update.executable.parent_path();
            runToEndOfOutput("/bin/sh", {"-c", std::string("cd \"$0\" && ") + command, folder});
            update.publish();
        };
    };
    constexpr const char* kNotRun = "its executable is not there or can't be run";
    expectEachRefused({
        {"older", after("sed -i s/1.0.0.2/0.9.0.0/ ../Info.plist"), "is 0.9.0.0 where"},
        {"other product", after("sed -i s/com.zelto/other/ ../Info.plist"), "Could not locate"},
        {"no executable", after("rm Teravolant"), kNotRun},
        {"text", after("chmod 400 Teravolant"), kNotRun},
        {"folder", after("rm Teravolant; mkdir Teravolant"), kNotRun},
        {"outside", after("mv Teravolant ../../..; ln -s ../../../Teravolant"), kNotRun},
    });
}

TEST(CutDownload, GoesOnWhereItEndedIfTheRestFits) {
    struct Cut {
        const char* situation;
        std::size_t place;
        std::pair<std::string, std::string> validator;
        bool goesOn;
        bool hasOtherContent = false;
    };
    const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT";
    const Cut table[] = {
        {"at the start", 0, {"ETag", kTag}, false},
        {"before the end", std::string::npos, {"ETag", kTag}, true},
        {"another tag, same content", 1000, {"ETag", "\"x\""}, true},
        {"another tag, other content", 1000, {"ETag", "\"x\""}, true, true},
        {"same tag, other content", 1000, {"ETag", kTag}, true, true},
        {"a date", 1000, {"Last-Modified", date}, true},
        {"a weak tag", 1000, {"ETag", "W/" + kTag}, false},
        {"no validator", 1000, {"Date", date}, false},
    };
    for (const auto& [situation, cut, validator, goesOn, hasOtherContent] : table) {
        SCOPED_TRACE(situation);
        Update update;  // The sizes of two archives can differ, because they contain times.
        const std::string right = update.archive;
        const std::size_t place = std::min(cut, right.size() - 1);
        update.archiveAnswers = {{.headers = {validator}, .body = right, .cutAfter = place}};
        if (hasOtherContent) {
            update.archive.assign(right.size(), '\0');
            update.expectRefused("its digest is not the one");
            update.archive = right;
            update.wallTime += 1h;
        }
        update.expectInstalled();
        // A part that was mixed from two contents is fetched again as a whole.
        const bool isMixed = hasOtherContent && validator.second == kTag;
        std::vector<std::string> ranges(isMixed ? 4 : hasOtherContent ? 3 : 2);
        ranges[1] = goesOn ? "bytes=" + std::to_string(place) + "-" : "";
        EXPECT_EQ(update.ranges, ranges);
    }
}

TEST(CutDownload, FetchesNoByteTwice) {
    Update update;
    const std::size_t size = update.archive.size();
    for (std::size_t start = 0; start < 5000; start += 1000) {
        const auto range = "bytes " + std::to_string(start) + "-" + std::to_string(size - 1) + "/" +
                           std::to_string(size);
        // Only the first answer has a validator.
        update.archiveAnswers.push_back(
            {.status = start == 0 ? 200 : 206,
             .headers = {start == 0 ? std::pair("ETag", kTag.c_str())
                                    : std::pair("Content-Range", range.c_str())},
             .body = update.archive.substr(start),
             .cutAfter = 1000});
    }
    update.expectInstalled();
    EXPECT_EQ(update.ranges,
              (std::vector<std::string>{"", "bytes=1000-", "bytes=2000-", "bytes=3000-",
                                        "bytes=4000-", "bytes=5000-"}));
    EXPECT_EQ(update.pauses, (std::vector<std::int64_t>(5, 2)));
}

TEST(CutDownload, IsFetchedAgainAsAWholeOnce) {
    Update update;
    const std::string size = std::to_string(update.archive.size());
    update.archive.assign(update.archive.size(), '\0');  // It never has the offered digest.
    const ServerAnswer cut{.headers = {{"ETag", kTag}}, .body = update.archive, .cutAfter = 1000};
    const auto range = "bytes 1000-" + std::to_string(update.archive.size() - 1) + "/" + size;
    const ServerAnswer rest{206, {{"Content-Range", range}}, update.archive.substr(1000)};
    update.archiveAnswers = {cut, rest, cut, rest, cut, rest};
    update.expectRefused("its digest is not the one");
    EXPECT_EQ(update.ranges.size(), 4U);
}

TEST(Retries, EndAfterThreeMinutesWithoutProgress) {
    const ServerAnswer busy{503, {{"Retry-After", "7"}}};
    struct Failure {
        const char* situation;
        std::vector<ServerAnswer> feed, archive;
        std::vector<std::int64_t> pauses;
        bool isInstalled = true;
    };
    const Failure table[] = {
        {"busy", {busy, {429}, {408}}, {}, {7, 4, 8}},
        {"silent", {{.isSilent = true}}, {}, {2}},
        {"no HTTP at first", {}, {{.raw = ""}, {500}}, {2, 4}},
        {"another part", {}, {{206, {{"Content-Range", "bytes 3-9/10"}}, "b"}}, {2}},
        {"range refused", {}, {{416}}, {2}},
        {"long pause", {{503, {{"Retry-After", "181"}}}}, {}, {}, false},
        {"down", std::vector<ServerAnswer>(8, {502}), {}, {2, 4, 8, 16, 32, 60, 58}, false},
        {"cut at one place",
         {},
         std::vector<ServerAnswer>(10, {.body = "b", .chunked = true, .cutAfter = 1}),
         {2, 4, 8, 16, 32, 60, 58},
         false},
    };
    for (const Failure& failure : table) {
        SCOPED_TRACE(failure.situation);
        Update update;
        update.feedAnswers = failure.feed;
        update.archiveAnswers = failure.archive;
        if (failure.isInstalled) {
            update.expectInstalled();
        } else {
            EXPECT_FALSE(update.run());
        }
        EXPECT_EQ(update.pauses, failure.pauses);
    }
}

TEST(RefusedArchive, IsNotFetchedAgainAtEveryStart) {
    struct Refused {
        const char* situation;
        std::function<void(Update&)> change;
        std::vector<std::chrono::hours> pauses;
    };
    const Refused table[] = {
        {"not an update", [](Update& u) { fs::remove(u.executable), u.publish(); }, {168h, 168h}},
        {"other bytes", [](Update& u) { u.archive.front() ^= 1; }, {1h, 4h, 24h, 24h}},
        {"cut short", [](Update& u) { u.archive.pop_back(); }, {1h, 4h}},
    };
    for (const Refused& refused : table) {
        SCOPED_TRACE(refused.situation);
        Update update;
        refused.change(update);
        update.expectRefused("refused");
        for (std::size_t fetched = 1; const auto pause : refused.pauses) {
            EXPECT_EQ(update.ranges.size(), fetched++);
            update.wallTime += pause - 1s;
            update.expectRefused("was refused on this computer at 2026-1");
            update.wallTime += 1s;
            update.expectRefused("refused");
        }
        update.wallTime -= 1000h;  // A clock that was set back.
        update.expectRefused("refused");
        EXPECT_EQ(update.ranges.size(), refused.pauses.size() + 2);
        // The repaired publication arrives at once.
        fs::copy("/bin/true", update.executable, fs::copy_options::overwrite_existing);
        fs::last_write_time(update.executable, fs::last_write_time(update.executable) - 1h);
        update.publish();
        update.expectInstalled();
    }
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
