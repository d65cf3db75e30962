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

std::chrono::steady_clock::time_point theTime(std::chrono::hours(1));

TEST(Application, FirstSignalTerminatesAndLaterSignalKills) {
    constexpr std::chrono::milliseconds kLater(2001);
    struct Row {
        const char* situation;
        std::vector<int> before;                     ///< Signals raised before launch.
        std::vector<int> during;                     ///< Signals raised at launch.
        std::vector<const char*> commands;           ///< Shell commands run after these.
        std::chrono::milliseconds between = kLater;  ///< The time that passes after each of them.
        bool isKilled = false;
        const char* printed = "^launch terminate$";
    };
    constexpr std::chrono::milliseconds kPair(1000);
    const Row table[] = {
        {"termination", {}, {SIGTERM}, {}},
        {"interrupt", {}, {SIGINT}, {}},
        {"hang-up", {}, {SIGHUP}, {}},
        {"before launch", {SIGTERM}, {}, {}, kLater, false, "^terminate$"},
        {"pair", {}, {SIGINT, SIGINT, SIGINT}, {}, kPair},
        {"pair and a third",
         {},
         {SIGTERM, SIGTERM, SIGTERM, SIGTERM},
         {},
         kPair,
         true,
         "^launch $"},
        {"of two kinds", {}, {SIGHUP, SIGTERM}, {}},
        {"twice", {}, {SIGINT, SIGINT}, {}, kLater, true, "^launch $"},
        {"failed writes", {}, {SIGPIPE, SIGPIPE, SIGXFSZ, SIGXFSZ, SIGTERM}, {}},
        {"interrupted command", {}, {}, {"exit 1", "kill -INT $$"}},
        {"commands with status 130", {}, {SIGTERM}, {"exit 130", "exit 130"}},
        {"two interrupted commands",
         {},
         {},
         {"kill -INT $$", "kill -INT $$"},
         kLater,
         true,
         "^launch $"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.situation);
        const auto start = [&row] {
            Application::sharedApplication();
            Application::setSignalClock([] { return theTime; });
            std::ranges::for_each(row.before, raise);
            PrintingDelegate::run([&row] {
                for (const int signal : row.during) {
                    raise(signal);
                    theTime += row.between;
                }
                for (const char* command : row.commands) {
                    runShellCommand(command);
                    theTime += row.between;
                }
            });
        };
        const auto isRight = [&row](int status) {
            return row.isKilled ? WIFSIGNALED(status) && WTERMSIG(status) != SIGABRT : status == 0;
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
