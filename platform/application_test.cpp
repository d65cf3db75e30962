#include "platform/application.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <thread>

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

TEST(Application, GoesOnWhenItsConsoleIsGone) {
    EXPECT_EXIT(runWith([] {
                    raise(SIGPIPE);
                    raise(SIGTERM);
                }),
                ::testing::ExitedWithCode(0), "^launch terminate$");
}

TEST(Application, TellsALoginItemByTheSessionManagersMarkAndTakesThatAway) {
    EXPECT_EXIT(
        {
            setenv("DESKTOP_AUTOSTART_ID", "", 1);
            Application::sharedApplication();
            runWith([] {
                std::fputs(getenv("DESKTOP_AUTOSTART_ID") == nullptr ? "taken " : "left ", stderr);
                const auto& event = Application::sharedApplication().currentAppleEvent();
                std::fputs(event.parameters.contains(kPropertyData) ? "marked " : "", stderr);
                raise(SIGTERM);
            });
        },
        ::testing::ExitedWithCode(0), "^login taken marked terminate$");
}

}  // namespace
}  // namespace teravolant::platform
