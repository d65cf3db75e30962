#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <iostream>

#include "testing/program.h"
#include "testing/update_world.h"

namespace teravolant {
namespace {

namespace fs = std::filesystem;
using fixtures::Program;

/// The system calls that change files, by their names on all machines: some have only a part.
const std::vector<const char*> kFileChangingCalls = {
    "openat",    "write",     "pwrite64", "truncate",  "ftruncate", "rename",   "renameat",
    "renameat2", "unlink",    "unlinkat", "rmdir",     "mkdir",     "mkdirat",  "symlink",
    "symlinkat", "link",      "linkat",   "chmod",     "fchmod",    "fchmodat", "utimensat",
    "fsync",     "fdatasync", "syncfs",   "fallocate", "flock",
};

/// Those of them that need room on the disk.
const std::vector<const char*> kRoomTakingCalls = {
    "write",   "pwrite64", "ftruncate", "rename", "renameat",  "mkdir",
    "mkdirat", "symlink",  "symlinkat", "fsync",  "fdatasync", "syncfs",
};

/// A world whose bundles can be run.
struct DriverWorld : fixtures::UpdateWorld {
    DriverWorld() : UpdateWorld("com.zelto.teravolant.driver", UPDATE_DRIVER) {}

    [[nodiscard]] std::string command(const fs::path& bundle, const std::string& tracer = "",
                                      const std::string& input = "/dev/null") const {
        return "env HOME=" + (folder.path() / "home").string() + " " + tracer + " '" +
               (bundle / "Contents/MacOS/Teravolant").string() + "' " + server->url("/feed") +
               " < " + input + " 2> /dev/null";
    }

    /// As it was at the beginning.
    void reset() const {
        for (const fs::path& used : {target, staging, folder.path() / "home"}) {
            EXPECT_FALSE(platform::removeTree(used));
        }
        makeBundle(target, kOldVersion, identifier);
    }

    [[nodiscard]] bool hasWholeArchive() const {
        std::error_code none;
        return fs::exists(cache / "staged.plist") ||
               fs::file_size(cache / "archive.part", none) == archive.size();
    }
};

/// What happens to an update at each of its steps.
struct Mishap {
    const std::vector<const char*>& calls;
    std::string effect;  ///< As strace injects it into the calls.
    std::string suffix;  ///< Behind the number of the call: "+" for all later ones as well.
    int status;          ///< Of a run that it befalls.
    bool canExchange = true;
};

/// Lets one mishap befall an update at each of its steps, and the next runs carry on.
class Interruptions {
  public:
    explicit Interruptions(Mishap mishap) : _mishap(std::move(mishap)) {}

    /// At the N-th call of each kind, for every N, until a run ends well.
    void tryAll() {
        for (const char* const call : _mishap.calls) {
            for (unsigned count = 1; tryOne(call, count); ++count) {
            }
        }
    }

    unsigned points = 0;
    unsigned held = 0;
    unsigned emptyPlaces = 0;
    std::string failures;

  private:
    /// False when nothing befell the run.
    bool tryOne(const std::string& call, unsigned count) {
        _world.reset();
        std::string tracer = "strace -f -o /dev/null -e trace=?" + call;
        if (!_mishap.canExchange && call != "renameat2") {
            tracer += ",renameat2 -e inject=renameat2:error=EINVAL";
        }
        tracer += " -e inject=?" + call + ":" + _mishap.effect + ":when=" + std::to_string(count) +
                  _mishap.suffix;
        Program run(_world.command(_world.target, tracer));
        const int status = run.finish();
        const std::string failure = status == _mishap.status ? carryOn() : judgeWholeRun(run);
        if (!failure.empty()) {
            failures += call + " " + std::to_string(count) + ": " + failure + "\n";
        }
        if (status != _mishap.status) {
            return false;
        }
        ++points;
        held += failure.empty() ? 1 : 0;
        return true;
    }

    std::string judgeWholeRun(Program& run) const {
        return run.finish() == 0 && isDone() ? "" : "it should have ended well: " + run.lastLine;
    }

    /// What does not hold after the mishap; nothing when all does.
    std::string carryOn() {
        const std::string tree = _world.installedTree();
        const fs::path aside = _world.staging / ".previous.app";
        if (!_mishap.canExchange && tree.empty() && fs::exists(aside)) {
            ++emptyPlaces;
            Program(_world.command(aside)).finish();
            if (_world.installedTree() != _world.oldTree) {
                return "the bundle that was moved aside is not back";
            }
        } else if (tree != _world.oldTree && tree != _world.newTree) {
            return "neither the old nor the new bundle is there";
        }
        const bool hadArchive = _world.hasWholeArchive();
        const std::size_t requests = _world.archiveRequests().size();
        for (int run = 0; run < 2 && !isDone(); ++run) {
            Program later(_world.command(_world.target));
            if (later.finish() != 0) {
                return "a later run: " + later.lastLine;
            }
        }
        if (!isDone()) {
            return "two later runs have not brought the new version and nothing else";
        }
        return hadArchive && _world.archiveRequests().size() != requests
                   ? "the whole archive was requested again"
                   : "";
    }

    [[nodiscard]] bool isDone() const {
        return _world.installedTree() == _world.newTree && _world.leftovers().empty();
    }

    const DriverWorld _world;
    const Mishap _mishap;
};

void expectAllToHold(const char* points, const Mishap& mishap) {
    Interruptions all(mishap);
    all.tryAll();
    std::cout << points << ": " << all.points << ", held: " << all.held << "\n";
    EXPECT_EQ(all.failures, "");
    EXPECT_EQ(all.held, all.points);
    EXPECT_GE(all.points, 50U);
    // Only between two moves is there an instant without a bundle at its place.
    EXPECT_EQ(all.emptyPlaces, mishap.canExchange ? 0U : 1U);
}

TEST(InterruptedUpdate, ThatIsKilledLeavesTheOldOrTheNewBundleAndTheNextRunsBringTheNewOne) {
    expectAllToHold("kill points", {kFileChangingCalls, "signal=KILL", "", -1});
}

TEST(InterruptedUpdate, ThatIsKilledIsRepairedWhereTheFileSystemCanNotExchangeFolders) {
    expectAllToHold("kill points without exchange",
                    {kFileChangingCalls, "signal=KILL", "", -1, false});
}

TEST(InterruptedUpdate, ThatFindsTheDiskFullIsAnErrorAndIsDoneOnceThereIsRoom) {
    expectAllToHold("points of a full disk", {kRoomTakingCalls, "error=ENOSPC", "+", 1});
}

TEST(ConcurrentUpdates, OneOfTwentyStartsInstallsAndTheOthersSayWhyTheyDoNot) {
    constexpr std::size_t kStarts = 20;
    const DriverWorld world;
    const fs::path gate = world.folder.path() / "gate";
    const fs::path lateGate = world.folder.path() / "late";
    ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
    ASSERT_EQ(mkfifo(lateGate.c_str(), 0600), 0);
    platform::UniqueFd closed(open(gate.c_str(), O_RDWR | O_CLOEXEC));
    platform::UniqueFd lateClosed(open(lateGate.c_str(), O_RDWR | O_CLOEXEC));
    std::vector<std::unique_ptr<Program>> starts;
    for (std::size_t start = 0; start <= kStarts; ++start) {
        starts.push_back(std::make_unique<Program>(
            world.command(world.target, "", start < kStarts ? gate : lateGate)));
    }
    for (const auto& start : starts) {
        ASSERT_EQ(start->readLine(), world.kOldVersion);
    }
    closed = platform::UniqueFd();
    std::size_t installed = 0;
    for (std::size_t start = 0; start < kStarts; ++start) {
        const std::string outcome = starts[start]->readLine();
        installed += outcome == "installed 1.0.0.2" ? 1 : 0;
        EXPECT_TRUE(outcome == "installed 1.0.0.2" ||
                    outcome.find("Another start of this program is updating it already") !=
                        outcome.npos ||
                    outcome.find("The bundle was replaced by version 1.0.0.2") != outcome.npos)
            << outcome;
        starts[start]->finish();
    }
    lateClosed = platform::UniqueFd();
    EXPECT_NE(starts[kStarts]->readLine().find("The bundle was replaced by version 1.0.0.2"),
              std::string::npos);
    EXPECT_EQ(installed, 1U);
    EXPECT_EQ(world.archiveRequests().size(), 1U);
    EXPECT_EQ(world.installedTree(), world.newTree);
    EXPECT_EQ(world.leftovers(), std::vector<std::string>());
}

}  // namespace
}  // namespace teravolant
