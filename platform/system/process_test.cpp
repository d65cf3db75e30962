#include "platform/system/process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {

TEST(Process, ReturnsAllOutputWithoutWaitingForTheEnd) {
    const fixtures::TemporaryFolder folder;
    const std::string pipe = folder.path() / "pipe";
    // The program runs until a reader opens the pipe, which happens after the end of its output.
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

}  // namespace teravolant::platform
