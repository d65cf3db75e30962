#include "platform/process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "testing/temporary_folder.h"

namespace teravolant::platform {
namespace {

TEST(Process, AnswersAllOutputOfAProgramThatGotItsArgumentsAsTheyAreAndDoesNotWaitForItsEnd) {
    const fixtures::TemporaryFolder folder;
    const std::string pipe = folder.path() / "pipe";
    // The program goes on until somebody opens the pipe, which happens only after its output ended.
    const auto result = runToEndOfOutput(
        "/bin/sh",
        {"-c", R"(mkfifo "$0"; printf '[%s]' "$@"; seq 100000; exec > /dev/null; : > "$0")", pipe,
         "a b", "", "$HOME;'\"*", "%s"});
    EXPECT_TRUE(result.standardOutput.starts_with("[a b][][$HOME;'\"*][%s]1\n2\n"));
    EXPECT_TRUE(result.standardOutput.ends_with("\n99999\n100000\n"));
    EXPECT_FALSE(runToEndOfOutput("/bin/cat", {pipe}).launchError);
}

TEST(Process, LaunchedDetachedInheritsNoOpenFile) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_FALSE(launchDetached(
        "/bin/sh", {"-c", "echo inherited > /proc/self/fd/$0", std::to_string(ends[1])}));
    close(ends[1]);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 0);
    close(ends[0]);
}

TEST(Process, ListingLeavesTheEnvironmentAndTheStandardOutputAsTheyWere) {
    const char* const print = "echo \"[$LC_ALL|$COLUMNS]\"";
    setenv("COLUMNS", "20", 1);
    unsetenv("LC_ALL");
    ::testing::internal::CaptureStdout();
    runShellCommand(print);
    {
        const ProcessListing listing;
        EXPECT_EQ(runToEndOfOutput("/bin/sh", {"-c", print}).standardOutput, "[C.UTF-8|]\n");
        runShellCommand("echo lost");
    }
    runShellCommand(print);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[|20]\n[|20]\n");
}

}  // namespace
}  // namespace teravolant::platform
