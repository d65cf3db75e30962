#include <gtest/gtest.h>

#include <array>

#include <fstream>

#include "platform/text.h"
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
using platform::Error;
using platform::JsonValue;
using platform::Result;
using platform::SigningKey;
using platform::StagedUpdate;
using Outcome = Result<std::optional<StagedUpdate>>;

const std::string kIdentity = TEST_BUNDLE_IDENTIFIER;

struct World : UpdateWorld {
    World() : UpdateWorld(kIdentity) {}

    Outcome run(std::chrono::milliseconds stallTimeout = std::chrono::seconds(30)) const {
        const ClientUpdater updater{platform::URLRequest{std::optional(platform::URL(feedURL))}};
        auto updateCycle = cycle(updater);
        updateCycle.options.stallTimeout = stallTimeout;
        return runUpdateCycle(updateCycle);
    }

    /// One cycle must stage the update.
    [[nodiscard]] StagedUpdate stage() const {
        const Outcome outcome = run();
        EXPECT_TRUE(outcome && outcome.value()) << (outcome ? "none" : text(outcome.error()));
        return outcome && outcome.value() ? *outcome.value() : StagedUpdate{};
    }

    void install(const StagedUpdate& update) const {
        const auto error = installStagedUpdate(cache, update);
        EXPECT_FALSE(error) << text(*error);
    }

    [[nodiscard]] bool isAnythingStaged() const {
        return fs::exists(staging) || fs::exists(cache / "staged.plist");
    }

    static std::string text(const Error& error) {
        const auto* const suggestion =
            error.userInformation<std::string>(platform::NSLocalizedRecoverySuggestionErrorKey);
        return printedForm(error) + (suggestion != nullptr ? *suggestion : "");
    }
};

/// The error names the reason and the machine is as it was.
void expectRefusal(const World& world, const Outcome& outcome, const std::string& reason) {
    EXPECT_EQ(world.installedTree(), world.oldTree);
    EXPECT_FALSE(world.isAnythingStaged());
    ASSERT_FALSE(outcome);
    EXPECT_NE(World::text(outcome.error()).find(reason), std::string::npos)
        << World::text(outcome.error()).substr(0, 1000);
}

HttpServer::Handler always(ServerAnswer answer) {
    return [answer = std::move(answer)](const ReceivedRequest&) { return answer; };
}

/// What is wrong in a world, and what the error must say.
struct Fault {
    const char* situation;
    std::function<void(World&)> change;
    std::string reason;
};

Fault faultyFeed(const char* situation, const ServerAnswer& answer, std::string reason) {
    return {situation, [answer](World& world) { world.feedAnswer = always(answer); },
            std::move(reason)};
}

/// What is done to the right answer for the archive.
struct ArchiveFault {
    int status = 200;
    int surplus = 0;  ///< Bytes more than there should be, or less.
    bool chunked = false;
    std::optional<std::size_t> stallAfter = {};
    bool isOther = false;
};

Fault faultyArchive(const char* situation, ArchiveFault fault, std::string reason) {
    return {situation,
            [fault](World& world) {
                std::string body = world.archive;
                body.resize(body.size() + static_cast<std::size_t>(fault.surplus), 'x');
                body.front() ^= fault.isOther ? 1 : 0;
                world.archiveAnswer = always({.status = fault.status,
                                              .body = body,
                                              .chunked = fault.chunked,
                                              .stallAfter = fault.stallAfter});
            },
            std::move(reason)};
}

void runTable(const std::vector<Fault>& table, std::chrono::milliseconds stallTimeout) {
    for (const Fault& fault : table) {
        SCOPED_TRACE(fault.situation);
        World world;
        fault.change(world);
        expectRefusal(world, world.run(stallTimeout), fault.reason);
    }
}

TEST(Updating, FaultyServerIsAnErrorThatNamesTheFaultAndChangesNothing) {
    const std::string offerStart = R"({"version": "1.0.0.2", )";
    runTable(
        {faultyFeed("404", {.status = 404, .body = "none"}, "status 404"),
         faultyFeed("500", {.status = 500}, "status 500"),
         faultyFeed("empty", {.status = 200}, "status 200 and an empty body"),
         faultyFeed("HTML", {.body = "<!DOCTYPE html><title>Login</title>"},
                    "The server sent an invalid response."),
         faultyFeed("array", {.body = R"([{"version": "1.0.0.2"}])"},
                    "The server sent an invalid JSON response."),
         faultyFeed("2 MiB", {.body = std::string(2U << 20U, ' ')}, "larger than the 1048576"),
         faultyFeed("2 MiB, not announced", {.body = std::string(2U << 20U, ' '), .chunked = true},
                    "larger than the 1048576"),
         faultyFeed("redirect to plain http",
                    {.status = 302, .headers = {{"Location", "http://updates.example/feed"}}},
                    "“updates.example” is not asked over plain http"),
         faultyFeed("circle", {.status = 302, .headers = {{"Location", "/feed"}}},
                    "more than 10 redirects"),
         faultyFeed("cut", {.body = offerStart, .announcedLength = 300}, "was lost"),
         faultyFeed("cut in chunks", {.body = offerStart, .chunked = true, .cutAfter = 10},
                    "was lost"),
         faultyFeed("stall", {.body = offerStart, .stallAfter = 10}, "went silent"),
         {"no server", [](World& world) { world.server.reset(); }, "could not be connected to"},
         faultyArchive("no archive", {.status = 404}, "status 404"),
         faultyArchive("longer", {.surplus = 1}, "the server has more than"),
         faultyArchive("longer, not announced", {.surplus = 1, .chunked = true}, "sends more than"),
         faultyArchive("shorter", {.surplus = -1}, "it ends after"),
         faultyArchive("shorter, not announced", {.surplus = -1, .chunked = true}, "it ends after"),
         faultyArchive("archive stalls", {.stallAfter = 1000}, "went silent"),
         faultyArchive("other bytes", {.isOther = true}, "SHA-256 is not the one")},
        std::chrono::milliseconds(200));
}

TEST(Updating, AnInterruptedDownloadResumesWhereItWasCut) {
    for (const std::size_t place : {0U, 1U, 2U, 3U}) {
        World world;
        const std::size_t size = world.archive.size();
        const std::size_t offset =
            std::array{std::size_t{0}, std::size_t{1}, size / 2, size - 1}[place];
        SCOPED_TRACE(offset);
        const auto whole = world.archiveAnswer;
        world.archiveAnswer = [&](const ReceivedRequest& request) {
            ServerAnswer answer = whole(request);
            answer.cutAfter = offset;
            return answer;
        };
        expectRefusal(world, world.run(), "was lost");
        world.archiveAnswer = whole;
        world.install(world.stage());
        EXPECT_EQ(world.installedTree(), world.newTree);
        ASSERT_EQ(world.archiveRequests().size(), 2U);
        EXPECT_EQ(world.archiveRequests()[1].header("range"),
                  offset == 0 ? "" : "bytes=" + std::to_string(offset) + "-");
    }
}

TEST(Updating, ARestThatDoesNotFitThePartIsNeverPutBehindIt) {
    struct Row {
        const char* situation;
        const char* validator;  ///< The name of the header that the first answer has, or null.
        std::string tag;        ///< Of the second answer.
        std::function<std::string(std::string)> content;
        bool isAskedForTheRest;
        std::string error;  ///< Of the second cycle; empty when it stages the update.
        std::optional<std::string> range = {};  ///< Says that the answer is another part.
    };
    const auto same = [](std::string archive) { return archive; };
    const auto other = [](const std::string& archive) { return std::string(archive.size(), 'x'); };
    const auto shorter = [](const std::string&) { return std::string("short"); };
    const std::string wrongDigest = "SHA-256 is not the one";
    const Row table[] = {
        {"another tag, same content", "ETag", "\"2\"", same, true, ""},
        {"another tag, other content", "ETag", "\"2\"", other, true, wrongDigest},
        {"same tag, other content", "ETag", "\"1\"", other, true, wrongDigest},
        {"a part that starts elsewhere", "ETag", "\"1\"", same, true,
         "a part that was not asked for", "bytes 7-99/100"},
        {"a shorter file", "ETag", "\"1\"", shorter, true, "status 416"},
        {"a date", "Last-Modified", "\"2\"", same, true, ""},
        {"no validator", nullptr, "\"2\"", same, false, ""},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.situation);
        World world;
        const auto whole = world.archiveAnswer;
        ServerAnswer first{.body = world.archive, .cutAfter = 1000};
        if (row.validator != nullptr) {
            first.headers = {{row.validator, "\"1\""}};
        }
        world.archiveAnswer = always(first);
        expectRefusal(world, world.run(), "was lost");
        world.archiveAnswer = [&](const ReceivedRequest& request) {
            ServerAnswer answer = answerWithRange(request, row.content(world.archive), row.tag);
            if (row.range) {
                answer.headers.back() = {"Content-Range", *row.range};
            }
            return answer;
        };
        if (row.error.empty()) {
            EXPECT_EQ(world.stage().version, World::kNewVersion);
        } else {
            expectRefusal(world, world.run(), row.error);
            // The next one is not held up by what is left of this one.
            world.archiveAnswer = whole;
            EXPECT_EQ(world.stage().version, World::kNewVersion);
            EXPECT_EQ(world.archiveRequests().back().header("range"), "");
        }
        EXPECT_EQ(world.archiveRequests()[1].header("range"),
                  row.isAskedForTheRest ? "bytes=1000-" : "");
    }
}

/// A row whose offer has another value for a member, or none, and the old signature.
Fault hostileOffer(const char* member, std::optional<JsonValue> value, std::string reason) {
    return {member,
            [member, value = std::move(value)](World& world) {
                world.offer.erase(member);
                if (value) {
                    world.offer[member] = *value;
                }
            },
            std::move(reason)};
}

/// A row whose member of the offer is wrong in itself; the signature fits all the same.
Fault hostileMember(const char* member, JsonValue value, std::string reason) {
    return {member,
            [member, value = std::move(value)](World& world) {
                world.offer[member] = value;
                world.offerAs(World::kNewVersion);
            },
            std::move(reason)};
}

/// A row whose published bundle is not what the offer says.
Fault hostileBundle(const char* situation, std::function<void(World&)> change, std::string reason) {
    return {situation,
            [change = std::move(change)](World& world) {
                change(world);
                world.publish();
            },
            std::move(reason)};
}

std::function<void(World&)> remade(const std::string& version, const std::string& identifier) {
    return [=](World& world) {
        EXPECT_FALSE(platform::removeTree(world.newBundle));
        world.makeBundle(world.newBundle, version, identifier);
    };
}

/// A row whose bundle has something else in the place of its executable.
Fault hostileExecutable(const char* situation, const std::function<void(const fs::path&)>& make) {
    return hostileBundle(
        situation,
        [make](World& world) {
            const fs::path program = world.newBundle / "Contents/MacOS/Teravolant";
            fs::remove(program);
            make(program);
        },
        "its executable");
}

TEST(Updating, HostileOfferIsAnErrorThatNamesTheReasonAndChangesNothing) {
    const std::string unsignedOffer = "made by none of this bundle's keys";
    runTable(
        {hostileOffer("version", "1.0.0.1", "is not older than"),
         hostileOffer("version", "0.9.9.9", "is not older than"),
         hostileOffer("version", "2.0", "2.0 is illegal version"),
         hostileOffer("version", {}, "(null) is illegal version"),
         hostileOffer("version", 2.5, "2.5 is illegal version"),
         hostileOffer("version", JsonValue(), "null is illegal version"),
         hostileOffer("version", JsonValue::Array{"5.0.0.0"}, "[\"5.0.0.0\"] is illegal version"),
         hostileOffer("version", "1.0.0.2\nsize=1.0.0.2", "line feed"),
         hostileOffer("version", "1.0.0.3", unsignedOffer),
         hostileMember("url", JsonValue(), "The update's “url”"),
         hostileMember("url", "archive", "The update's “url”"),
         hostileMember("url", "file:///etc/passwd", "The update's “url”"),
         hostileMember("url", "http://updates.example/archive", "The update's “url”"),
         {"a name that climbs",
          [](World& world) {
              world.offer.erase("url");
              world.offer["name"] = "../../../../etc/passwd";
          },
          "status 404"},
         hostileOffer("size", std::int64_t{7}, unsignedOffer),
         hostileMember("size", std::int64_t{7}, "the server has more than the 7 bytes"),
         hostileMember("size", std::int64_t{1} << 60U, "more bytes"),
         hostileMember("size", std::int64_t{10'000'000}, "it ends after"),
         hostileOffer("sha256", std::string(64, '0'), unsignedOffer),
         hostileMember("sha256", std::string(64, '0'), "SHA-256 is not the one"),
         hostileOffer("size", {}, "no \"size\""),
         hostileOffer("sha256", {}, "no \"sha256\""),
         hostileOffer("signature", {}, "no \"signature\""),
         {"signed by a stranger",
          [](World& world) {
              world.offer["signature"] =
                  world.signature(SigningKey::generate().value(), kIdentity, World::kNewVersion);
          },
          unsignedOffer},
         {"signed for another product",
          [](World& world) {
              world.offer["signature"] =
                  world.signature(world.key, kIdentity + ".other", World::kNewVersion);
          },
          unsignedOffer},
         hostileBundle("older than offered", remade("0.9.0.0", kIdentity),
                       "its version is 0.9.0.0 where 1.0.0.2 was offered"),
         hostileBundle("another product", remade("1.0.0.2", kIdentity + ".x"),
                       "Could not locate update bundle for " + kIdentity),
         hostileExecutable("none", [](const fs::path&) {}),
         hostileExecutable("can't be executed",
                           [](const fs::path& program) { std::ofstream(program) << "text"; }),
         hostileExecutable("a folder",
                           [](const fs::path& program) { fs::create_directory(program); }),
         hostileExecutable("leads out of the bundle",
                           [](const fs::path& program) {
                               fs::copy("/bin/true", program.parent_path() / "../../../program");
                               fs::create_symlink("../../../program", program);
                           })},
        std::chrono::seconds(30));
}

TEST(Updating, ABundleWithoutAKeyRefusesEveryOffer) {
    const World world;
    const ClientUpdater updater{platform::URLRequest{std::optional(platform::URL(world.feedURL))}};
    auto cycle = world.cycle(updater);
    cycle.publicKeys.clear();
    expectRefusal(world, runUpdateCycle(cycle), "no public key (TVUpdatePublicKeys)");
}

/// The longest version that fits into a feed is answered too, however deep it gets.
TEST(Updating, AVersionOfAMillionCharactersIsAnsweredWithAnError) {
    constexpr std::size_t kLength = (1U << 20U) - 1024;
    std::string alternating(kLength, '1');
    for (std::size_t place = 1; place < kLength; place += 2) {
        alternating[place] = '.';
    }
    alternating.back() = '1';
    const std::string illegal = " is illegal version";
    for (const auto& [version, reason] : {std::pair(std::string(kLength, '1'), illegal),
                                          std::pair(std::string(kLength, '.'), illegal),
                                          std::pair(alternating, std::string(" was offered."))}) {
        World world;
        world.offerAs(version);
        const Outcome outcome = world.run();
        EXPECT_EQ(world.installedTree(), world.oldTree);
        ASSERT_FALSE(outcome);
        EXPECT_TRUE(outcome.error().localizedDescription.ends_with(reason))
            << outcome.error().localizedDescription.substr(kLength);
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
    EXPECT_EQ(world.installedTree(), world.newTree);
    EXPECT_EQ(world.leftovers(), std::vector<std::string>());
}

TEST(Updating, WhatAnEarlierCycleStagedIsUsedOnlyWhereItIsWholeAndInItsPlace) {
    struct Row {
        const char* situation;
        std::function<void(const World&, StagedUpdate&)> change;
        std::size_t downloads;  ///< Of both cycles together.
    };
    const auto moveTo = [](const World& world, StagedUpdate update, const fs::path& recorded) {
        fs::rename(update.staged, world.folder.path() / "elsewhere");
        update.staged = recorded;
        EXPECT_FALSE(writeStagedUpdate(world.cache, update));
    };
    const Row table[] = {
        {"whole", [](auto&, auto&) {}, 1},
        {"tampered with",
         [](auto&, auto& update) { std::ofstream(update.staged / "Contents/link") << "more"; }, 2},
        {"no longer there",
         [](auto&, auto& update) { EXPECT_FALSE(platform::removeTree(update.staged)); }, 2},
        {"without its record", [](auto& world, auto&) { fs::remove(world.cache / "staged.plist"); },
         2},
        {"a record that is no property list",
         [](auto& world, auto&) {
             std::ofstream(world.cache / "staged.plist") << "half of <plist";
         },
         2},
        {"a record of a tree elsewhere",
         [&](auto& world, auto& update) {
             moveTo(world, update, world.folder.path() / "elsewhere");
         },
         2},
        {"a record that climbs out of the staging folder",
         [&](auto& world, auto& update) {
             moveTo(world, update, world.staging / "published/../../../elsewhere");
         },
         2},
        {"a record of another version",
         [](auto& world, auto& update) {
             update.version = "1.0.0.3";
             EXPECT_FALSE(writeStagedUpdate(world.cache, update));
         },
         2},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.situation);
        World world;
        StagedUpdate update = world.stage();
        row.change(world, update);
        update = world.stage();
        EXPECT_EQ(world.installedTree(), world.oldTree);
        EXPECT_EQ(world.archiveRequests().size(), row.downloads);
        world.install(update);
        EXPECT_EQ(world.installedTree(), world.newTree);
        EXPECT_EQ(world.leftovers(), std::vector<std::string>());
    }
}

TEST(Updating, ACycleWithoutAnUpdateIsNoErrorAndRemovesWhatIsOutdated) {
    struct Row {
        const char* situation;
        std::function<void(World&)> change;
    };
    const Row table[] = {
        {"nothing", [](World&) {}},
        {"half-made staging",
         [](World& world) {
             world.makeBundle(world.staging / "published/Teravolant.app", World::kNewVersion,
                              kIdentity);
         }},
        {"an update that was installed by other means",
         [](World& world) {
             (void)world.stage();
             EXPECT_FALSE(platform::removeTree(world.target));
             world.makeBundle(world.target, World::kNewVersion, kIdentity);
         }},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.situation);
        World world;
        row.change(world);
        const std::string installed = world.installedTree();
        world.feedAnswer = always({.status = 204});
        const Outcome outcome = world.run();
        EXPECT_TRUE(outcome && !outcome.value());
        EXPECT_EQ(world.leftovers(), std::vector<std::string>());
        EXPECT_EQ(world.installedTree(), installed);
    }
}

TEST(Updating, ABundleThatCanNotBeReplacedIsAnErrorBeforeTheDownload) {
    for (const bool folderToo : {false, true}) {
        SCOPED_TRACE(folderToo);
        World world;
        const fs::path closed = folderToo ? world.target.parent_path() : world.target;
        fs::permissions(closed, fs::perms::owner_write, fs::perm_options::remove);
        const Outcome outcome = world.run();
        fs::permissions(closed, fs::perms::owner_write, fs::perm_options::add);
        expectRefusal(world, outcome, "can't be replaced by this user");
        EXPECT_EQ(world.archiveRequests().size(), 0U);
    }
}

}  // namespace
}  // namespace teravolant
