#include "platform/system/application.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>

#include "platform/system/process.h"

namespace teravolant::platform {

/// Prints the calls that it receives, and runs a function of the test at launch.
class PrintingDelegate : public ApplicationDelegate {
  public:
    explicit PrintingDelegate(std::function<void()> atLaunch) : _atLaunch(std::move(atLaunch)) {}

    [[noreturn]] static void run(const std::function<void()>& atLaunch) {
        Application& application = Application::sharedApplication();
        application.setDelegate(std::make_unique<PrintingDelegate>(atLaunch));
        application.run();
    }

    void applicationDidFinishLaunching(const LaunchNotification& /*notification*/) override {
        std::fputs("launch ", stderr);
        _atLaunch();
    }
    void applicationWillTerminate() override { std::fputs("terminate", stderr); }

  private:
    std::function<void()> _atLaunch;
};

TEST(Application, FirstSignalTerminatesAndSecondSignalKills) {
    struct Row {
        const char* situation;
        std::vector<int> before;            ///< Signals raised before launch.
        std::vector<int> during;            ///< Signals raised at launch.
        std::vector<const char*> commands;  ///< Shell commands run after these.
        bool isKilled = false;
        const char* printed = "^launch terminate$";
    };
    const Row table[] = {
        {"termination", {}, {SIGTERM}, {}},
        {"interrupt", {}, {SIGINT}, {}},
        {"hang-up", {}, {SIGHUP}, {}},
        {"before launch", {SIGTERM}, {}, {}, false, "^terminate$"},
        {"twice", {}, {SIGINT, SIGINT}, {}, true, "^launch $"},
        {"failed writes", {}, {SIGPIPE, SIGPIPE, SIGXFSZ, SIGXFSZ, SIGTERM}, {}},
        {"interrupted command", {}, {}, {"exit 1", "kill -INT $$"}},
        {"interrupted command of a command", {}, {}, {"sh -c 'kill -INT $$'; exit $?"}},
        {"two interrupted commands", {}, {}, {"kill -INT $$", "kill -INT $$"}, true, "^launch $"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.situation);
        const auto start = [&row] {
            Application::sharedApplication();
            std::ranges::for_each(row.before, raise);
            PrintingDelegate::run([&row] {
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

TEST(Application, KeepsIgnoredSignalsAndUnblocksItsOwn) {
    const auto start = [] {
        std::signal(SIGHUP, SIG_IGN);
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, nullptr);
        PrintingDelegate::run([] {
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

}  // namespace teravolant::platform
