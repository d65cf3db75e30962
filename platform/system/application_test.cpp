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
    constexpr std::chrono::milliseconds kPair(1000);
    constexpr std::chrono::milliseconds kLater(2001);
    constexpr const char* kTerminates = "^launch terminate$";
    constexpr const char* kKilled = "^launch $";
    const struct Row {
        std::chrono::milliseconds between;  ///< The time that passes after each step.
        const char* printed;
        std::vector<int> signals;                ///< Raised at launch.
        std::vector<const char*> commands = {};  ///< Shell commands run after these.
        std::vector<int> before = {};            ///< Signals raised before launch.
    } table[] = {
        {kLater, kTerminates, {SIGTERM}},
        {kLater, kTerminates, {SIGINT}},
        {kLater, kTerminates, {SIGHUP}},
        {kLater, "^terminate$", {}, {}, {SIGTERM}},
        {kPair, kTerminates, {SIGINT, SIGINT, SIGINT}},
        {kPair, kKilled, {SIGTERM, SIGTERM, SIGTERM, SIGTERM}},
        {kLater, kTerminates, {SIGHUP, SIGTERM}},
        {kLater, kKilled, {SIGINT, SIGINT}},
        {kLater, kTerminates, {SIGPIPE, SIGPIPE, SIGXFSZ, SIGXFSZ, SIGTERM}},
        {kLater, kTerminates, {}, {"exit 1", "kill -INT $$"}},
        {kLater, kTerminates, {SIGTERM}, {"exit 130", "exit 130"}},
        {kLater, kKilled, {}, {"kill -INT $$", "kill -INT $$"}},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(&row - table);
        const auto start = [&row] {
            Application::sharedApplication();
            Application::setSignalClock([] { return theTime; });
            std::ranges::for_each(row.before, raise);
            PrintingDelegate::run([&row] {
                for (const int signal : row.signals) {
                    raise(signal);
                    theTime += row.between;
                }
                for (const char* command : row.commands) {
                    runShellCommand(command);
                    theTime += row.between;
                }
            });
        };
        const auto isRight = [&](int status) {
            return row.printed == kKilled ? WIFSIGNALED(status) && WTERMSIG(status) != SIGABRT
                                          : status == 0;
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
