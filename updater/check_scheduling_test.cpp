#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "platform/core/error.h"
#include "platform/system/application.h"
#include "support/logger.h"
#include "tests/fixtures/log_reader.h"
#include "tests/fixtures/manual_clock.h"
#include "updater/client_updater.h"

namespace teravolant {

using namespace std::chrono_literals;
using platform::Application;
using platform::Error;
using platform::UpdaterState;
using Lines = std::vector<std::string>;
using Outcome = platform::Result<std::optional<platform::StagedUpdate>>;

/// An updater whose cycle runs until the test ends it.
class FakeUpdater : public ClientUpdater {
  public:
    FakeUpdater() : ClientUpdater(platform::URLRequest()) {}

    Outcome runCycle() override {
        _cycle.set_value(makeCycle());
        return _outcome.get_future().get();
    }

    void beginDownload() { _cycle.get_future().get().downloadBegins(); }

    void endCycle(Outcome outcome) {
        _outcome.set_value(std::move(outcome));
        while (state() == UpdaterState::checking) {
            std::this_thread::yield();
        }
    }

  private:
    std::promise<platform::UpdateCycle> _cycle;
    std::promise<Outcome> _outcome;
};

/// A started schedule with a clock of its own. Its handle is dropped.
struct Schedule {
    std::shared_ptr<FakeUpdater> updater = std::make_shared<FakeUpdater>();
    std::shared_ptr<fixtures::ManualClock> clock = std::make_shared<fixtures::ManualClock>();

    Schedule() {
        (void)updater->startChecksImmediately(clock);
        clock->awaitWaiting(1);
    }
};

/// Runs two schedules beside the application loop of a whole program.
class TwoSchedules : public platform::ApplicationDelegate {
  public:
    void applicationDidFinishLaunching(const platform::LaunchNotification& /*unused*/) override {
        std::thread([] {
            const Schedule first;
            const Schedule second;
            first.clock->advance(2999ms);
            Logger::sharedInstance().logMessage("3 s");
            first.clock->advance(1ms);
            first.clock->advance(3s);
            first.updater->beginDownload();
            first.clock->advance(13s);  // Missed ticks are skipped.
            first.clock->advance(1999ms);
            second.clock->advance(3s);
            std::promise<void>().get_future().wait();  // The process ends meanwhile.
        }).detach();
    }
    void applicationWillTerminate() override {
        const bool onMainThread = gettid() == getpid();
        Logger::sharedInstance().logMessage(onMainThread ? "terminated" : "wrong thread");
    }
};

TEST(CheckScheduling, ChecksOnceAndTerminatesWhenIdle) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const fixtures::LogReader log;
    EXPECT_EXIT(
        {
            Application::sharedApplication().setDelegate(std::make_unique<TwoSchedules>());
            Application::sharedApplication().run();
        },
        ::testing::ExitedWithCode(0), "");
    const std::string wait = "[ClientUpdater::startChecksImmediately] wait CheckUpdate result ";
    EXPECT_EQ(log.entries(), (Lines{"3 s", "[ClientUpdater::startChecksImmediately] do CheckUpdate",
                                    wait + "1", wait + "2", wait + "0", "terminated"}));
}

TEST(CheckScheduling, EndsWithItsUpdater) {
    const fixtures::LogReader log;
    Schedule schedule;
    schedule.updater.reset();
    schedule.clock->awaitWaiting(0);
    schedule.clock->advance(10s, 0);
    EXPECT_EQ(log.entries(), Lines());
}

TEST(UpdateCycle, ReportsErrorBeforeIdle) {
    const std::pair<Outcome, UpdaterState> table[] = {
        {Error{}, UpdaterState::idle},
        {std::optional<platform::StagedUpdate>(), UpdaterState::idle},
        {std::optional(platform::StagedUpdate()), UpdaterState::awaitingRelaunch}};
    for (const auto& [outcome, expected] : table) {
        const auto updater = std::make_shared<FakeUpdater>();
        auto reportedIn = UpdaterState::idle;
        updater->checkForUpdates([&](const Error& /*error*/) { reportedIn = updater->state(); });
        updater->endCycle(outcome);
        EXPECT_EQ(updater->state(), expected);
        EXPECT_EQ(reportedIn, outcome ? UpdaterState::idle : UpdaterState::checking);
    }
}

}  // namespace teravolant
