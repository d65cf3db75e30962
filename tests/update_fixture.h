#pragma once

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
#include "update_framework/installing.h"
#include "update_framework/tree_digest.h"
#include "update_framework/update_cycle.h"
#include "update_framework/updater_error.h"
#include "updater/client_updater.h"

// An update and its server, for tests that run whole cycles in their own process.
namespace teravolant::fixtures {

namespace fs = std::filesystem;
using namespace platform;
using namespace std::chrono_literals;

inline const std::string kIdentifier = TEST_BUNDLE_IDENTIFIER;
inline const std::string kTag = "\"tag\"";  ///< Of the archive.

inline const SigningKey kPublisher = *SigningKey::generate();
inline const SigningKey kSpareKey = *SigningKey::generate();  ///< Only the published bundle has it.

/// An installed bundle of version 1.0.0.1, and a server that offers version 1.0.0.2. A test changes
/// what the server sends between the cycles; only a cycle has a server.
struct Update {
    /// `place` is the name of the folder around the installed bundle.
    explicit Update(const std::string& place = "installed")
        : installed(folder.path() / place / "Teravolant.app") {
        setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
        fs::create_directory(cache);
        makeBundle(installed, "1.0.0.1");
        makeBundle(published, "1.0.0.2");
        publish();
    }

    void makeBundle(const fs::path& path, const std::string& version) const {
        folder.write(path / "Contents/Info.plist",
                     serialisePropertyList(Value::Dictionary{
                         {"CFBundleIdentifier", kIdentifier},
                         {"CFBundleShortVersionString", version},
                         {"TVUpdatePublicKeys",
                          Value::Array{*kPublisher.publicKey(), *kSpareKey.publicKey()}}}));
        fs::create_directory(path / "Contents/MacOS");
        fs::copy("/bin/true", path / "Contents/MacOS/Teravolant");
        const fs::path check = path / "Contents/Helpers/selfcheck";
        folder.write(check, "#!/bin/sh\necho 'selfcheck: passed'\n");
        fs::permissions(check, fs::perms::owner_all);
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
                     return inPause ? inPause() : Status();
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
        EXPECT_FALSE(installStagedUpdate(cache, outcome->value(), Confirmation::SelfCheck));
        EXPECT_EQ(*digestOfTree(installed), lines["tree"]);
        EXPECT_TRUE(!fileExists(staging) &&
                    (fs::remove(cache / "refused.plist"), fs::is_empty(cache)));
    }

    const TemporaryFolder folder;
    const fs::path cache = folder.path() / "cache";
    const fs::path installed;
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
    std::function<Status()> inPause;
    std::vector<std::int64_t> pauses;  ///< Of the last cycle, in seconds.
};

/// A change of the update that makes a cycle fail for the reason.
struct Row {
    const char* situation;
    std::function<void(Update&)> change;
    const char* reason;
};

inline void expectEachRefused(const std::vector<Row>& table) {
    for (const auto& [situation, change, reason] : table) {
        SCOPED_TRACE(situation);
        Update update;
        change(update);
        update.expectRefused(reason);
    }
}

}  // namespace teravolant::fixtures
