#include "platform/system/application.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>

#include "platform/system/process.h"

namespace teravolant::platform {
namespace {

/// Prints what it is told; does at the launch what a test gives it to do.
class PrintingDelegate : public ApplicationDelegate {
  public:
    explicit PrintingDelegate(std::function<void()> atLaunch) : _atLaunch(std::move(atLaunch)) {}

    void applicationDidFinishLaunching(const LaunchNotification& /*notification*/) override {
        std::fputs("launch ", stderr);
        _atLaunch();
    }
    void applicationWillTerminate() override { std::fputs("terminate", stderr); }

  private:
    std::function<void()> _atLaunch;
};

[[noreturn]] void runWith(const std::function<void()>& atLaunch) {
    Application& application = Application::sharedApplication();
    application.setDelegate(std::make_unique<PrintingDelegate>(atLaunch));
    application.run();
}

// The same signal again ends it at once.
TEST(Application, TakesASignalForATerminationRequest) {
    struct Row {
        const char* situation;
        std::vector<int> before;            ///< The signals that come before the launch,
        std::vector<int> during;            ///< those that come at it,
        std::vector<const char*> commands;  ///< and what a shell is given to run then.
        bool isKilled = false;
        const char* printed = "^launch terminate$";
    };
    const Row table[] = {
        {"termination", {}, {SIGTERM}, {}},
        {"interrupt", {}, {SIGINT}, {}},
        {"end of the terminal", {}, {SIGHUP}, {}},
        {"before the launch", {SIGTERM}, {}, {}, false, "^terminate$"},
        {"twice", {}, {SIGINT, SIGINT}, {}, true, "^launch $"},
        {"failed writes", {}, {SIGPIPE, SIGPIPE, SIGXFSZ, SIGXFSZ, SIGTERM}, {}},
        {"of a command", {}, {}, {"exit 1", "kill -INT $$"}},
        {"of a command's command", {}, {}, {"sh -c 'kill -INT $$'; exit $?"}},
        {"of two commands", {}, {}, {"kill -INT $$", "kill -INT $$"}, true, "^launch $"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.situation);
        const auto start = [&row] {
            Application::sharedApplication();
            std::ranges::for_each(row.before, raise);
            runWith([&row] {
                std::ranges::for_each(row.during, raise);
                std::ranges::for_each(row.commands, runShellCommand);
            });
        };
        const auto isRight = [&row](int status) {
            return row.isKilled ? WIFSIGNALED(status) && WTERMSIG(status) == SIGINT : status == 0;
        };
        EXPECT_EXIT(start(), isRight, row.printed);
    }
}

TEST(Application, KeepsIgnoredAndUnblocksBlockedSignals) {
    const auto start = [] {
        std::signal(SIGHUP, SIG_IGN);
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, nullptr);
        runWith([] {
            sigset_t blocked;
            sigprocmask(SIG_BLOCK, nullptr, &blocked);
            for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
                std::fputs(sigismember(&blocked, signal) == 1 ? "blocked " : "open ", stderr);
            }
            std::ranges::for_each(std::array{SIGHUP, SIGHUP, SIGTERM}, raise);
        });
    };
    EXPECT_EXIT(start(), ::testing::ExitedWithCode(0), "^launch open open open open terminate$");
}

}  // namespace
}  // namespace teravolant::platform
