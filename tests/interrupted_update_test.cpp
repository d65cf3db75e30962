#include <gtest/gtest.h>

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

    [[nodiscard]] bool isDone() const { return installedTree() == newTree && leftovers().empty(); }

    [[nodiscard]] bool hasWholeArchive() const {
        std::error_code none;
        return fs::exists(cache / "staged.plist") ||
               fs::file_size(cache / "archive.part", none) == archive.size();
    }
};

/// What happens to an update at each of its steps.
struct Mishap {
    std::string name;
    const std::vector<const char*>& calls;
    std::string effect;  ///< As strace injects it into the calls.
    std::string suffix;  ///< Behind the number of the call: "+" for all later ones as well.
    int status;          ///< Of a run that it befalls.
    bool canExchange;    ///< Whether the file system can exchange two folders.
};

class InterruptedUpdate : public testing::TestWithParam<Mishap> {
  protected:
    void expectThatTheNextRunsBringTheNewBundle() {
        const std::string tree = _world.installedTree();
        const fs::path aside = _world.staging / ".previous.app";
        if (!GetParam().canExchange && tree.empty() && fs::exists(aside)) {
            ++_emptyPlaces;
            Program(_world.command(aside)).finish();
            EXPECT_EQ(_world.installedTree(), _world.oldTree);
        } else {
            EXPECT_TRUE(tree == _world.oldTree || tree == _world.newTree);
        }
        const bool hadArchive = _world.hasWholeArchive();
        const std::size_t requests = _world.archiveRequests().size();
        for (int run = 0; run < 2 && !_world.isDone(); ++run) {
            Program later(_world.command(_world.target));
            EXPECT_EQ(later.finish(), 0) << later.lastLine;
        }
        EXPECT_TRUE(_world.isDone());
        EXPECT_TRUE(!hadArchive || _world.archiveRequests().size() == requests)
            << "the whole archive was requested again";
    }

    const DriverWorld _world;
    unsigned _emptyPlaces = 0;
};

TEST_P(InterruptedUpdate, LeavesTheOldOrTheNewBundleAndTheNextRunsBringTheNewOne) {
    const Mishap& mishap = GetParam();
    const auto tracer = [&mishap](const std::string& call, unsigned count) {
        const bool isKept = mishap.canExchange || call == "renameat2";
        return "strace -f -o /dev/null -e trace=renameat2,?" + call +
               (isKept ? "" : " -e inject=renameat2:error=EINVAL") + " -e inject=?" + call + ":" +
               mishap.effect + ":when=" + std::to_string(count) + mishap.suffix;
    };
    unsigned points = 0;
    for (const std::string call : mishap.calls) {
        int status = mishap.status;
        for (unsigned count = 1; status == mishap.status; ++count) {
            SCOPED_TRACE(call + " " + std::to_string(count));
            _world.reset();
            Program run(_world.command(_world.target, tracer(call, count)));
            status = run.finish();
            if (status == mishap.status) {
                ++points;
                expectThatTheNextRunsBringTheNewBundle();
            } else {
                EXPECT_EQ(status, 0) << run.lastLine;
                EXPECT_TRUE(_world.isDone());
            }
        }
    }
    std::cout << points << " points\n";
    EXPECT_GE(points, 50U);
    // Only between two moves is there an instant without a bundle at its place.
    EXPECT_EQ(_emptyPlaces, mishap.canExchange ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(
    By, InterruptedUpdate,
    testing::Values(Mishap{"AKill", kFileChangingCalls, "signal=KILL", "", -1, true},
                    Mishap{"AKillWithoutExchange", kFileChangingCalls, "signal=KILL", "", -1,
                           false},
                    Mishap{"AFullDisk", kRoomTakingCalls, "error=ENOSPC", "+", 1, true}),
    [](const auto& mishap) { return mishap.param.name; });

TEST(ConcurrentUpdates, OneOfTwentyStartsInstallsAndTheOthersSayWhyTheyDoNot) {
    const DriverWorld world;
    // The late one began before the others, too, but goes on when they have ended.
    world.folder.write("script", "cd " + world.folder.path().string() + R"sh(
        mkfifo gate late; exec 3<> gate 4<> late
        for start in $(seq 20) late; do
            input=${start/[0-9]*/gate}
            )sh" + world.command(world.target, "", "$input") +
                                     R"sh( > out.$start 3>&- 4>&- &
            test $start = late || starts="$starts $!"
        done
        until test $(cat out.* | grep -cx 1.0.0.1) = 21; do :; done
        exec 3>&-; wait $starts; exec 4>&-; wait
        replaced="The bundle was replaced by version 1.0.0.2"
        echo $(cat out.* | grep -cx "installed 1.0.0.2") $(cat out.* |
            grep -c -e "$replaced" -e "Another start of this program is updating it already") \
            $(grep -c "$replaced" out.late))sh");
    EXPECT_EQ(Program("bash " + (world.folder.path() / "script").string()).readLine(), "1 20 1");
    EXPECT_EQ(world.archiveRequests().size(), 1U);
    EXPECT_TRUE(world.isDone());
}

}  // namespace
}  // namespace teravolant
