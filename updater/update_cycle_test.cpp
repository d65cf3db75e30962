#include <gtest/gtest.h>

#include <fstream>

#include "testing/update_world.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

namespace fs = std::filesystem;
using fixtures::answerWithRange;
using fixtures::HttpServer;
using fixtures::ReceivedRequest;
using fixtures::ServerAnswer;
using fixtures::UpdateWorld;
using platform::JsonValue;
using platform::StagedUpdate;
using Outcome = platform::Result<std::optional<StagedUpdate>>;

const std::string kIdentity = TEST_BUNDLE_IDENTIFIER;

struct World : UpdateWorld {
    World() : UpdateWorld(kIdentity) {}

    Outcome run() const {
        const ClientUpdater updater{platform::URLRequest{std::optional(platform::URL(feedURL))}};
        return runUpdateCycle(cycle(updater));
    }

    /// One cycle must stage the update.
    [[nodiscard]] StagedUpdate stage() const {
        const Outcome outcome = run();
        EXPECT_TRUE(outcome && outcome.value())
            << (outcome ? "none" : printedForm(outcome.error()));
        return outcome && outcome.value() ? *outcome.value() : StagedUpdate{};
    }

    /// The update must take the bundle's place, and leave nothing.
    void install(const StagedUpdate& update) const {
        const auto error = installStagedUpdate(cache, update);
        EXPECT_FALSE(error) << printedForm(*error);
        EXPECT_EQ(installedTree(), newTree);
        EXPECT_EQ(leftovers(), std::vector<std::string>());
    }

    /// One cycle must fail with an error that names the reason, and leave the machine as it was.
    void expectRefusal(const std::string& reason) const {
        const Outcome outcome = run();
        EXPECT_EQ(installedTree(), oldTree);
        EXPECT_FALSE(fs::exists(staging) || fs::exists(cache / "staged.plist"));
        ASSERT_FALSE(outcome);
        const std::string error = printedForm(outcome.error());
        EXPECT_NE(error.find(reason), error.npos) << error.substr(0, 1000);
    }
};

using Change = std::function<void(World&)>;

HttpServer::Handler always(ServerAnswer answer) {
    return [answer = std::move(answer)](const ReceivedRequest&) { return answer; };
}

Change feed(const ServerAnswer& answer) {
    return [answer](World& world) { world.feedAnswer = always(answer); };
}

/// The answer with the archive, or with more or less of it, for its body.
Change archive(const ServerAnswer& answer, int surplus = 0) {
    return [=](World& world) {
        ServerAnswer whole = answer;
        whole.body = world.archive;
        whole.body.resize(whole.body.size() + static_cast<std::size_t>(surplus), 'x');
        world.archiveAnswer = always(std::move(whole));
    };
}

enum class Signature { old, fitting };

/// A member of the offer has another value, or there is none.
Change member(const char* name, const std::optional<JsonValue>& value,
              Signature signature = Signature::old) {
    return [=](World& world) {
        world.offer.erase(name);
        if (value) {
            world.offer[name] = *value;
        }
        if (signature == Signature::fitting) {
            world.offerAs(*world.offer.at("version").text());
        }
    };
}

/// The publisher, or a stranger, has signed for the identifier.
Change signedFor(const std::string& identifier, bool byStranger) {
    return [=](World& world) {
        const auto stranger = platform::SigningKey::generate();
        world.offer["signature"] = world.signature(byStranger ? stranger.value() : world.key,
                                                   identifier, World::kNewVersion);
    };
}

/// The published bundle is not what the offer says.
Change bundle(const std::string& version, const std::string& identifier) {
    return [=](World& world) {
        EXPECT_FALSE(platform::removeTree(world.newBundle));
        world.makeBundle(world.newBundle, version, identifier);
        world.publish();
    };
}

/// A script of the shell has made something else in the place of the published bundle's executable.
Change executable(const std::string& script) {
    return [script](World& world) {
        const std::string folder = world.newBundle / "Contents/MacOS";
        EXPECT_EQ(std::system(("cd " + folder + "; rm Teravolant; " + script).c_str()), 0);
        world.publish();
    };
}

/// Each row says what is wrong in a world, and what the error must say.
void expectRefusals(const std::vector<std::tuple<const char*, Change, std::string>>& table) {
    for (const auto& [situation, change, reason] : table) {
        SCOPED_TRACE(situation);
        World world;
        change(world);
        world.expectRefusal(reason);
    }
}

TEST(Updating, FaultyServerIsAnErrorThatNamesTheFaultAndChangesNothing) {
    const std::string start = R"({"version": "1.0.0.2", )";
    const std::string large(2U << 20U, ' ');
    expectRefusals({
        {"404", feed({.status = 404, .body = "none"}), "status 404"},
        {"empty", feed({.status = 200}), "status 200 and an empty body"},
        {"HTML", feed({.body = "<!DOCTYPE html>"}), "Update check failed"},
        {"2 MiB", feed({.body = large}), "larger than the 1048576"},
        {"2 MiB in chunks", feed({.body = large, .chunked = true}), "larger than the 1048576"},
        {"plain http", feed({.status = 302, .headers = {{"Location", "http://u.example/feed"}}}),
         "“u.example” is not asked over plain http"},
        {"cut", feed({.body = start, .chunked = true, .cutAfter = 10}), "was lost"},
        {"no server", [](World& world) { world.server.reset(); }, "could not be connected to"},
        {"no archive", archive({.status = 404}), "status 404"},
        {"longer", archive({}, 1), "the server has more than"},
        {"longer, not announced", archive({.chunked = true}, 1), "sends more than"},
        {"shorter", archive({}, -1), "it ends after"},
    });
}

TEST(Updating, HostileOfferIsAnErrorThatNamesTheReasonAndChangesNothing) {
    const std::string notSigned = "made by none of this bundle's keys";
    const std::string illegal = " is illegal version";
    constexpr auto kFitting = Signature::fitting;
    expectRefusals({
        {"same version", member("version", "1.0.0.1"), "is not older than"},
        {"older version", member("version", "0.9.9.9"), "is not older than"},
        {"no version", member("version", {}), "(null)" + illegal},
        {"number", member("version", 2.5), "2.5" + illegal},
        {"list", member("version", JsonValue::Array{"5.0.0.0"}), "[\"5.0.0.0\"]" + illegal},
        {"two lines", member("version", "1.0.0.2\nsize=1.0.0.2"), "line feed"},
        {"a million digits", member("version", std::string(1'000'000, '1'), kFitting), illegal},
        {"a million full stops", member("version", std::string(1'000'000, '.'), kFitting), illegal},
        {"another version", member("version", "1.0.0.3"), notSigned},
        {"plain http", member("url", "http://updates.example/archive", kFitting), "“url”"},
        {"another size", member("size", std::int64_t{7}), notSigned},
        {"too small", member("size", std::int64_t{7}, kFitting), "the server has more than the 7"},
        {"too large", member("size", std::int64_t{10'000'000}, kFitting), "it ends after"},
        {"far too large", member("size", std::int64_t{1} << 60U, kFitting), "more bytes"},
        {"another digest", member("sha256", std::string(64, '0')), notSigned},
        {"wrong digest", member("sha256", std::string(64, '0'), kFitting), "is not the one"},
        {"no size", member("size", {}), "no \"size\""},
        {"no digest", member("sha256", {}), "no \"sha256\""},
        {"no signature", member("signature", {}), "no \"signature\""},
        {"a stranger's signature", signedFor(kIdentity, true), notSigned},
        {"another product's signature", signedFor(kIdentity + ".other", false), notSigned},
        {"older bundle", bundle("0.9.0.0", kIdentity), "its version is 0.9.0.0 where"},
        {"another product's bundle", bundle("1.0.0.2", kIdentity + ".x"),
         "Could not locate update bundle for"},
        {"no executable", executable("true"), "its executable"},
        {"text for an executable", executable("echo text > Teravolant"), "its executable"},
        {"folder for an executable", executable("mkdir Teravolant"), "its executable"},
        {"executable outside of the bundle",
         executable("cp /bin/true ../../../program; ln -s ../../../program Teravolant"),
         "its executable"},
    });
}

TEST(Updating, ACutDownloadGoesOnWhereItEndedUnlessTheRestDoesNotFitThePart) {
    struct Row {
        const char* situation;
        int cutAfter;           ///< Counted from the end where it is below zero.
        std::string validator;  ///< The header of the first answer whose value is "1".
        std::string tag;        ///< Of the second answer.
        bool hasOtherContent = false;
    };
    const Row table[] = {
        {"cut at the start", 0, "ETag", "\"1\""},
        {"cut after a byte", 1, "ETag", "\"1\""},
        {"cut before the end", -1, "ETag", "\"1\""},
        {"another tag, same content", 1000, "ETag", "\"2\""},
        {"another tag, other content", 1000, "ETag", "\"2\"", true},
        {"same tag, other content", 1000, "ETag", "\"1\"", true},
        {"a date", 1000, "Last-Modified", "\"2\""},
        {"no validator", 1000, "Date", "\"2\""},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.situation);
        World world;
        const std::size_t size = world.archive.size();
        const std::size_t cut =
            (row.cutAfter < 0 ? size : 0) + static_cast<std::size_t>(row.cutAfter);
        const auto whole = world.archiveAnswer;
        archive({.headers = {{row.validator, "\"1\""}}, .cutAfter = cut})(world);
        world.expectRefusal("was lost");
        world.archiveAnswer = [&](const ReceivedRequest& request) {
            return answerWithRange(
                request, row.hasOtherContent ? std::string(size, 'x') : world.archive, row.tag);
        };
        if (row.hasOtherContent) {
            world.expectRefusal("SHA-256 is not the one");
            world.archiveAnswer = whole;
        }
        // No cycle is held up by what is left of the one before.
        world.install(world.stage());
        const auto requests = world.archiveRequests();
        const bool asksForTheRest = cut > 0 && row.validator != "Date";
        EXPECT_EQ(requests.at(1).header("range"),
                  asksForTheRest ? "bytes=" + std::to_string(cut) + "-" : "");
        EXPECT_EQ(requests.size(), row.hasOtherContent ? 3U : 2U);
        EXPECT_TRUE(!row.hasOtherContent || requests.back().header("range").empty());
    }
}

TEST(Updating, ABundleInAClosedFolderOfTheArchiveIsInstalledToo) {
    World world;
    fs::create_directory(world.published / "outer");
    fs::rename(world.newBundle, world.published / "outer/Teravolant.app");
    for (const char* closed : {"outer/Teravolant.app", "outer", ""}) {
        fs::permissions(world.published / closed, fs::perms::owner_write, fs::perm_options::remove);
    }
    world.publish();
    world.install(world.stage());
}

TEST(Updating, WhatAnEarlierCycleStagedIsUsedOnlyWhereItIsWholeAndInItsPlace) {
    const auto moveTo = [](const World& world, StagedUpdate update, const fs::path& recorded) {
        fs::rename(update.staged, world.folder.path() / "elsewhere");
        update.staged = recorded;
        EXPECT_FALSE(writeStagedUpdate(world.cache, update));
    };
    const std::pair<const char*, std::function<void(const World&, StagedUpdate&)>> table[] = {
        {"tampered with",
         [](auto&, auto& update) { std::ofstream(update.staged / "Contents/link") << "more"; }},
        {"half a record",
         [](auto& world, auto&) { std::ofstream(world.cache / "staged.plist") << "<plist"; }},
        {"a record of a tree elsewhere",
         [&](auto& world, auto& update) {
             moveTo(world, update, world.folder.path() / "elsewhere");
         }},
        {"a record that climbs out of the staging folder",
         [&](auto& world, auto& update) {
             moveTo(world, update, world.staging / "published/../../../elsewhere");
         }},
        {"a record of another version",
         [](auto& world, auto& update) {
             update.version = "1.0.0.3";
             EXPECT_FALSE(writeStagedUpdate(world.cache, update));
         }},
    };
    for (const auto& [situation, change] : table) {
        SCOPED_TRACE(situation);
        const World world;
        StagedUpdate update = world.stage();
        change(world, update);
        update = world.stage();
        EXPECT_EQ(world.installedTree(), world.oldTree);
        EXPECT_EQ(world.archiveRequests().size(), 2U);
        world.install(update);
    }
}

TEST(Updating, ABundleThatCanNotBeReplacedIsAnErrorBeforeTheDownload) {
    World world;
    for (const fs::path& closed : {world.target, world.target.parent_path()}) {
        SCOPED_TRACE(closed);
        fs::permissions(closed, fs::perms::owner_write, fs::perm_options::remove);
        const Outcome outcome = world.run();
        fs::permissions(closed, fs::perms::owner_write, fs::perm_options::add);
        ASSERT_FALSE(outcome);
        EXPECT_NE(printedForm(outcome.error()).find("can't be replaced by this user"),
                  std::string::npos);
    }
    EXPECT_EQ(world.archiveRequests().size(), 0U);
}

}  // namespace
}  // namespace teravolant
