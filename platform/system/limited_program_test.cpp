#include "platform/system/limited_program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <csignal>

#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/files/files.h"
#include "platform/system/dynamic_loader.h"
#include "platform/system/executable_path.h"
#include "platform/system/landlock.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {
namespace {

EndedProgram runShell(const std::string& script, int milliseconds = 10000,
                      const std::filesystem::path& folder = {}) {
    const auto program =
        runLimited("/bin/sh", {"-c", script},
                   {.patience = std::chrono::milliseconds(milliseconds),
                    .environment = {"PATH=/usr/bin:/bin", "FOLDER=" + folder.string()},
                    .writableFolder = folder});
    EXPECT_TRUE(program);
    return program ? *program : EndedProgram{};
}

/// Returns why a copy of this program, with all occurrences of a text replaced, can't be loaded.
std::string complaintAfter(const std::string& from, const std::string& to) {
    const fixtures::TemporaryFolder folder;
    std::string bytes = *contentsOfFile(executablePathOfThisProcess());
    for (auto at = bytes.find(from); !from.empty() && at != std::string::npos;
         at = bytes.find(from, at)) {
        bytes.replace(at, from.size(), to);
    }
    folder.write("program", bytes);
    const auto error = checkLoadable(folder.path() / "program");
    return error ? error->localizedDescription : "";
}

}  // namespace

TEST(LimitedProgram, ReportsEndAndOutput) {
    const auto program = runShell("pwd; echo \"$0$HOME$FOLDER\" >&2; exit 3");
    EXPECT_EQ(program.exitStatus, 3);
    EXPECT_EQ(program.output, "/\n/bin/sh\n");
    const auto loud = runShell("seq 100000; kill -9 $$");
    EXPECT_EQ(loud.signal, SIGKILL);
    EXPECT_FALSE(loud.exitStatus || loud.timedOut);
    EXPECT_EQ(loud.output.size(), 65536U);
    EXPECT_TRUE(loud.output.ends_with("\n100000\n"));
    EXPECT_FALSE(runLimited("/bin/no-such-program", {}, {.patience = {}, .environment = {}}));
}

TEST(LimitedProgram, KillsGrandchildren) {
    const fixtures::TemporaryFolder folder;
    const std::string pipe = folder.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const FileDescriptor reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK));
    // The grandchild also keeps the output open, which does not delay the end.
    for (const bool hangs : {true, false}) {
        const auto program =
            runShell("exec 9> " + pipe + "; sleep 100 & " + (hangs ? "wait" : "exit 0"),
                     hangs ? 200 : 50000);
        EXPECT_EQ(program.timedOut, hangs);
        EXPECT_EQ(program.exitStatus, hangs ? std::nullopt : std::optional(0));
        pollfd end{.fd = reader.get(), .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&end, 1, 10000), 1) << "The grandchild still runs.";
    }
}

TEST(LimitedProgram, CanChangeOneFolder) {
    if (landlockVersion() == 0) {
        GTEST_SKIP() << "The kernel has no Landlock.";
    }
    const fixtures::TemporaryFolder other;
    const fixtures::TemporaryFolder folder;
    const std::string inside =
        "cd \"$FOLDER\" && mkdir a b && echo 1 > a/f && mv a/f f && ln f g && : > g && rm f && "
        "echo > /dev/null";
    EXPECT_EQ(runShell(inside, 10000, folder.path()).output, "");
    const auto outside =
        runShell("echo > " + (other.path() / "file").string(), 10000, folder.path());
    EXPECT_NE(outside.output.find("ermission denied"), std::string::npos) << outside.output;
    EXPECT_FALSE(fileExists(other.path() / "file"));
}

TEST(DynamicLoader, ReportsMissingParts) {
    EXPECT_EQ(complaintAfter("", ""), "");
    EXPECT_FALSE(checkLoadable(STATIC_PROGRAM));
    const std::tuple<const char*, const char*, const char*> faults[] = {
        {"libc.so.6", "libz.so.6", "libz.so.6 => not found"},
        {"GLIBC_2.34", "GLIBC_9.34", "version `GLIBC_9.34' not found"},
        {"__libc_start_main", "__libc_start_mail", "undefined symbol: __libc_start_mail"},
        {"\177ELF", "\177ELG", "invalid ELF header"},
    };
    for (const auto& [from, to, complaint] : faults) {
        const auto found = complaintAfter(from, to);
        EXPECT_NE(found.find(complaint), std::string::npos) << found;
    }
    EXPECT_TRUE(checkLoadable("/nonexistent"));
}

}  // namespace teravolant::platform
