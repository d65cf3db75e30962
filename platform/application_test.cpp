#include "platform/application.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <thread>

#include "platform/bundle.h"
#include "platform/process.h"

namespace teravolant::platform {
namespace {

/// Prints what it is told; does at the launch what a test gives it to do.
class PrintingDelegate : public ApplicationDelegate {
  public:
    explicit PrintingDelegate(std::function<void()> atLaunch) : _atLaunch(std::move(atLaunch)) {}

    void applicationDidFinishLaunching(const LaunchNotification& notification) override {
        std::fputs(notification.isDefaultLaunch.value_or(false) ? "launch " : "login ", stderr);
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

TEST(Application, CarriesOutWorkOfOtherThreadsOnTheMainThreadInOrder) {
    EXPECT_EXIT(runWith([] {
                    std::thread([main = std::this_thread::get_id()] {
                        for (const char* text : {"a", "b", "c"}) {
                            Application::sharedApplication().dispatchAsyncOnMainQueue([=] {
                                std::fputs(main == std::this_thread::get_id() ? text : "?", stderr);
                            });
                        }
                        Application::sharedApplication().dispatchAsyncOnMainQueue(
                            [] { Application::sharedApplication().terminate(); });
                    }).detach();
                }),
                ::testing::ExitedWithCode(0), "^launch abcterminate$");
}

TEST(Application, TakesASignalForAnOrdinaryTerminationRequest) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        EXPECT_EXIT(runWith([=] { raise(signal); }), ::testing::ExitedWithCode(0),
                    "^launch terminate$");
    }
}

TEST(Application, LaunchesNothingWhenItsEndWasAskedForBefore) {
    EXPECT_EXIT(
        {
            Application::sharedApplication();
            raise(SIGTERM);
            runWith([] {});
        },
        ::testing::ExitedWithCode(0), "^terminate$");
}

TEST(Application, EndsAtOnceWhenTheSameSignalComesAgain) {
    EXPECT_EXIT(runWith([] {
                    raise(SIGINT);
                    raise(SIGINT);
                }),
                ::testing::KilledBySignal(SIGINT), "^launch $");
}

TEST(Application, TakesTheInterruptThatEndedAShellCommandForItsOwn) {
    const auto runCommands = [](const std::vector<const char*>& commands) {
        runWith([&commands] {
            for (const char* command : commands) {
                runShellCommand(command);
            }
        });
    };
    EXPECT_EXIT(runCommands({"exit 1", "kill -INT $$"}), ::testing::ExitedWithCode(0),
                "^launch terminate$");
    EXPECT_EXIT(runCommands({"sh -c 'kill -INT $$'; exit $?"}), ::testing::ExitedWithCode(0),
                "^launch terminate$");
    EXPECT_EXIT(runCommands({"kill -INT $$", "kill -INT $$"}), ::testing::KilledBySignal(SIGINT),
                "^launch $");
}

TEST(Application, GoesOnWhenAWriteFailsOrTheStarterHadASignalIgnored) {
    for (const int signal : {SIGPIPE, SIGXFSZ, SIGHUP, SIGINT}) {
        EXPECT_EXIT(
            {
                if (signal == SIGHUP || signal == SIGINT) {
                    std::signal(signal, SIG_IGN);
                }
                runWith([=] {
                    raise(signal);
                    raise(signal);
                    raise(SIGTERM);
                });
            },
            ::testing::ExitedWithCode(0), "^launch terminate$");
    }
}

TEST(Application, UnblocksTheSignalsThatItLivesOn) {
    EXPECT_EXIT(
        {
            sigset_t all;
            sigfillset(&all);
            sigprocmask(SIG_BLOCK, &all, nullptr);
            runWith([] {
                sigset_t blocked;
                sigprocmask(SIG_BLOCK, nullptr, &blocked);
                for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
                    std::fputs(sigismember(&blocked, signal) == 1 ? "blocked " : "open ", stderr);
                }
                Application::sharedApplication().terminate();
            });
        },
        ::testing::ExitedWithCode(0), "^launch open open open open terminate$");
}

TEST(Application, PutsItsHelpersOnAPathWithoutEmptyEntries) {
    const std::string helpers = Bundle::mainBundle().helpersPath();
    const std::string usual = "/usr/local/bin:/usr/bin:/bin";
    for (const auto& [before, after] : std::map<std::string, std::string>{
             {"", usual},
             {"::", usual},
             {":/a::b/c:", "/a:b/c"},
             {helpers, usual},
             {helpers + ":/a", "/a"},
         }) {
        EXPECT_EXIT(
            {
                setenv("PATH", before.c_str(), 1);
                Application::sharedApplication();
                std::fputs(getenv("PATH"), stderr);
                std::_Exit(0);
            },
            ::testing::ExitedWithCode(0),
            std::string("^").append(helpers).append(":").append(after).append("$"));
    }
}

}  // namespace
}  // namespace teravolant::platform
