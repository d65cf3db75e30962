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

void raiseEach(const std::vector<int>& signals) {
    for (const int signal : signals) {
        raise(signal);
    }
}

TEST(Application, CarriesOutWorkOfOtherThreadsOnTheMainThreadInOrder) {
    EXPECT_EXIT(runWith([] {
                    std::thread([main = std::this_thread::get_id()] {
                        Application& application = Application::sharedApplication();
                        for (const char* text : {"a", "b", "c"}) {
                            application.dispatchAsyncOnMainQueue([=] {
                                std::fputs(main == std::this_thread::get_id() ? text : "?", stderr);
                            });
                        }
                        application.dispatchAsyncOnMainQueue([&] { application.terminate(); });
                    }).detach();
                }),
                ::testing::ExitedWithCode(0), "^launch abcterminate$");
}

TEST(Application, TakesASignalForATerminationRequestAndTheSameAgainForTheEnd) {
    struct Row {
        std::vector<int> before;  ///< The signals before the launch, and during it.
        std::vector<int> during;
        std::vector<const char*> commands;  ///< Of a shell, after them.
        const char* printed = "^launch terminate$";
        bool isKilled = false;
    };
    const Row table[] = {
        {{}, {SIGTERM}, {}},
        {{}, {SIGINT}, {}},
        {{}, {SIGHUP}, {}},
        {{SIGTERM}, {}, {}, "^terminate$"},
        {{}, {SIGINT, SIGINT}, {}, "^launch $", true},
        {{}, {SIGPIPE, SIGPIPE, SIGXFSZ, SIGXFSZ, SIGTERM}, {}},
        {{}, {}, {"exit 1", "kill -INT $$"}},
        {{}, {}, {"sh -c 'kill -INT $$'; exit $?"}},
        {{}, {}, {"kill -INT $$", "kill -INT $$"}, "^launch $", true},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(&row - table);
        const auto start = [&row] {
            Application::sharedApplication();
            raiseEach(row.before);
            runWith([&row] {
                raiseEach(row.during);
                for (const char* command : row.commands) {
                    runShellCommand(command);
                }
            });
        };
        if (row.isKilled) {
            EXPECT_EXIT(start(), ::testing::KilledBySignal(SIGINT), row.printed);
        } else {
            EXPECT_EXIT(start(), ::testing::ExitedWithCode(0), row.printed);
        }
    }
}

TEST(Application, LeavesASignalIgnoredAndUnblocksThoseThatItLivesOn) {
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
            raiseEach({SIGHUP, SIGHUP, SIGTERM});
        });
    };
    EXPECT_EXIT(start(), ::testing::ExitedWithCode(0), "^launch open open open open terminate$");
}

TEST(Application, PutsItsHelpersOnAPathWithoutEmptyEntries) {
    const std::string helpers = Bundle::mainBundle().helpersPath();
    for (const auto& [before, after] : std::map<std::string, std::string>{
             {"::", "/usr/local/bin:/usr/bin:/bin"}, {":" + helpers + ":/a::b/c:", "/a:b/c"}}) {
        const auto start = [path = before] {
            setenv("PATH", path.c_str(), 1);
            Application::sharedApplication();
            std::fputs(getenv("PATH"), stderr);
            std::_Exit(0);
        };
        EXPECT_EXIT(start(), ::testing::ExitedWithCode(0),
                    std::string("^").append(helpers).append(":").append(after).append("$"));
    }
}

}  // namespace
}  // namespace teravolant::platform
