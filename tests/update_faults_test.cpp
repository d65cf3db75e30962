// Whole update cycles that meet hostile offers, faulty servers and what earlier cycles left.
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

    void publish() {
        EXPECT_FALSE(packFolder(published.parent_path(), folder.path() / "packed"));
        archive = *contentsOfFile(folder.path() / "packed");
        Digest digest(DigestAlgorithm::Sha256);
        digest.update(archive);
        offer = {{"name", "archive"},
                 {"version", "1.0.0.2"},
                 {"size", std::ssize(archive)},
                 {"sha256", digest.finish()}};
        sign(kPublisher);
    }

    void sign(const SigningKey& key, const std::string& identifier = kIdentifier) {
        const std::string text = "teravolant-update 1\nidentifier=" + identifier +
                                 "\nversion=" + *offer["version"].text() +
                                 "\nsize=" + std::to_string(*offer["size"].integer()) +
                                 "\nsha256=" + *offer["sha256"].text() + "\n";
        offer["signature"] = *key.sign(text);
    }

    /// One cycle, with nothing installed at its end. Its pauses take no time.
    Result<std::optional<StagedUpdate>> run() {
        const HttpServer server([this](const ReceivedRequest& request) {
            if (request.target != "/archive") {
                return take(feedAnswers, ServerAnswer{.body = *serialiseJson(offer)});
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
             .bundleIdentifier = kIdentifier,
             .bundleVersion = "1.0.0.1",
             .publicKeys = {"none", *kPublisher.publicKey()},
             .cacheFolder = cache,
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
             .log = [](const std::string&) {},
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
        EXPECT_EQ(*digestOfTree(installed), *digestOfTree(published));
        EXPECT_TRUE(!fileExists(staging) &&
                    (fs::remove(cache / "refused.plist"), fs::is_empty(cache)));
    }

    const TemporaryFolder folder;
    const fs::path cache = folder.path() / "cache";
    const fs::path installed = folder.path() / "installed/Teravolant.app";
    const fs::path published = folder.path() / "published/Teravolant.app";
    const fs::path executable = published / "Contents/MacOS/Teravolant";
    const fs::path staging = stagingFolderFor(installed);
    Value::Dictionary offer;
    std::string archive;
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

/// A null stands for an offer without that member, no signer for the signature as it was.
auto offer(const char* member, const Value& value, const SigningKey* signer = nullptr,
           const std::string& identifier = kIdentifier) {
    return [=](Update& update) {
        update.offer[member] = value;
        std::erase_if(update.offer, [](const auto& entry) { return entry.second.isNull(); });
        if (signer != nullptr) {
            update.sign(*signer, identifier);
        }
    };
}

TEST(HostileOffer, IsRefusedAndChangesNothing) {
    constexpr const char* kNoKey = "made by none of this bundle's keys";
    const SigningKey* const key = &kPublisher;
    const SigningKey stranger = *SigningKey::generate();
    expectEachRefused({
        {"same version", offer("version", "1.0.0.1"), "is not older than"},
        {"no version", offer("version", {}), "(null) is illegal version"},
        {"number", offer("version", 2.5), "2.5 is illegal version"},
        {"two lines", offer("version", "1.0.0.2\nsize=1.0.0.2"), "line feed"},
        {"many digits", offer("version", std::string(1'000'000, '0')), "0 is illegal version"},
        {"many stops", offer("version", std::string(1'000'000, '.')), ". is illegal version"},
        {"another version", offer("version", "1.0.0.3"), kNoKey},
        {"plain http", offer("url", "http://updates.example/archive"), "“url”"},
        {"too small", offer("size", 7, key), "the server has more than the 7"},
        {"too large", offer("size", 10'000'000, key), "it ends after"},
        {"far too large", offer("size", 1'000'000'000'000'000'000, key), "more bytes on the"},
        {"wrong digest", offer("sha256", std::string(64, '0'), key), "is not the one"},
        {"no size", offer("size", {}), "no \"size\""},
        {"no digest", offer("sha256", {}), "no \"sha256\""},
        {"no signature", offer("signature", {}), "no \"signature\""},
        {"stranger's key", offer("version", "1.0.0.2", &stranger), kNoKey},
        {"other product", offer("version", "1.0.0.2", key, kIdentifier + ".other"), kNoKey},
    });
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
            update.expectRefused("SHA-256 is not the one");
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
    update.expectRefused("SHA-256 is not the one");
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
        fs::path movedTo = {};  ///< From the staging folder on, as the next.
        fs::path spoiled = {};
    };
    const Kept table[] = {
        {"untouched"},
        {"another version's record", "1.0.0.3"},
        {"a tree elsewhere", "1.0.0.2", "/tmp/elsewhere"},
        {"a place that climbs out", "1.0.0.2", "published/../../../elsewhere"},
        {"tampered with", "1.0.0.2", {}, "published/Teravolant.app/Contents/Info.plist"},
        {"no record's form", "1.0.0.2", {}, "../../cache/staged.plist"},
    };
    for (const auto& [situation, version, movedTo, spoiled] : table) {
        SCOPED_TRACE(situation);
        Update update;
        StagedUpdate staged = update.run()->value();
        staged.version = version;
        if (!movedTo.empty()) {
            fs::rename(staged.staged, update.staging / movedTo);
            staged.staged = update.staging / movedTo;
        }
        ASSERT_FALSE(writeStagedUpdate(update.cache, staged));
        if (!spoiled.empty()) {
            std::ofstream(update.staging / spoiled) << "<plist";
        }
        ASSERT_TRUE(update.run());
        EXPECT_EQ(Bundle::bundleWithPath(update.installed)->shortVersion(), "1.0.0.1");
        EXPECT_EQ(update.ranges.size(), situation == table[0].situation ? 1U : 2U);
        update.expectInstalled();
    }
}

}  // namespace
}  // namespace teravolant
