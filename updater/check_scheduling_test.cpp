#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/application.h"
#include "support/logger.h"
#include "testing/log_reader.h"
#include "testing/manual_clock.h"
#include "testing/temporary_folder.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using namespace std::chrono_literals;
using fixtures::ManualClock;
using platform::Application;
using platform::Error;
using platform::UpdaterState;
using Lines = std::vector<std::string>;

using Outcome = platform::Result<std::optional<platform::StagedUpdate>>;

/// An updater whose cycle goes on until the test ends it.
class FakeUpdater : public ClientUpdater {
  public:
    FakeUpdater() : ClientUpdater(platform::URLRequest()) {}

    using ClientUpdater::setState;

    void endCycle(Outcome outcome) { _outcome.set_value(std::move(outcome)); }

  protected:
    Outcome runCycle(const platform::UpdateCycle& /*cycle*/) override {
        return _outcome.get_future().get();
    }

  private:
    std::promise<Outcome> _outcome;
};

/// A started schedule, whose handle is dropped, with a clock of its own.
struct Schedule {
    std::shared_ptr<FakeUpdater> updater = std::make_shared<FakeUpdater>();
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();

    Schedule() {
        (void)updater->startChecksImmediately(clock);
        clock->awaitWaiting(1);
    }

    /// Returns when the tick is over.
    void tick() const { clock->advance(3s); }
};

/// Runs a script beside the application loop, as the user of a whole program would see it.
class ScriptDelegate : public platform::ApplicationDelegate {
  public:
    explicit ScriptDelegate(std::function<void()> script) : _script(std::move(script)) {}

    void applicationDidFinishLaunching(const platform::LaunchNotification& /*unused*/) override {
        _mainThread = std::this_thread::get_id();
        std::thread(_script).detach();
    }
    void applicationWillTerminate() override {
        const bool onMainThread = std::this_thread::get_id() == _mainThread;
        Logger::sharedInstance().logMessage(onMainThread ? "terminated" : "wrong thread");
    }

  private:
    std::function<void()> _script;
    std::thread::id _mainThread;
};

/// The log of a process of its own, which the script's schedules must bring to its end.
Lines logOfProcess(const std::function<void()>& script) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const fixtures::LogReader log;
    EXPECT_EXIT(
        {
            Application& application = Application::sharedApplication();
            application.setDelegate(std::make_unique<ScriptDelegate>(script));
            application.run();
        },
        ::testing::ExitedWithCode(0), "");
    return log.entries();
}

const std::string kStart = "[ClientUpdater::startChecksImmediately] do CheckUpdate";
const std::string kWait = "[ClientUpdater::startChecksImmediately] wait CheckUpdate result ";

TEST(CheckScheduling, ApplicationEndsWhenAnUpdateAwaitsTheRelaunch) {
    const auto script = [] {
        const Schedule schedule;
        schedule.clock->advance(2999ms);
        Logger::sharedInstance().logMessage("3 s");
        schedule.clock->advance(1ms);
        schedule.tick();
        schedule.updater->setState(UpdaterState::downloading);
        schedule.tick();
        schedule.updater->setState(UpdaterState::awaitingRelaunch);
        schedule.tick();
        std::promise<void>().get_future().wait();  // The process ends meanwhile.
    };
    EXPECT_EQ(logOfProcess(script),
              (Lines{"3 s", kStart, kWait + "1", kWait + "2", kWait + "3", "terminated"}));
}

TEST(CheckScheduling, FailedCheckIsLoggedOnceAndEndsTheApplicationAtTheNextTick) {
    const auto script = [] {
        const Schedule schedule;
        schedule.tick();
        schedule.updater->endCycle(
            Error{.domain = "Test", .code = 7, .localizedDescription = "It failed"});
        while (schedule.updater->state() != UpdaterState::idle) {
            std::this_thread::yield();
        }
        schedule.tick();
        std::promise<void>().get_future().wait();
    };
    EXPECT_EQ(logOfProcess(script),
              (Lines{kStart, "Error checking for updates: Error Domain=Test Code=7 \"It failed\"",
                     kWait + "0", "terminated"}));
}

TEST(CheckScheduling, SecondUpdaterStartsNoSecondCheckInAProcess) {
    const auto script = [] {
        const Schedule first;
        const Schedule second;
        first.tick();
        first.tick();
        second.tick();
        std::promise<void>().get_future().wait();
    };
    EXPECT_EQ(logOfProcess(script), (Lines{kStart, kWait + "1", kWait + "0", "terminated"}));
}

struct EndCase {
    Outcome outcome;
    UpdaterState expected;
};

TEST(UpdateCycle, LeavesTheUpdaterIdleUnlessItFoundAnUpdateAndTellsItsErrorBefore) {
    for (const EndCase& test :
         {EndCase{Error{.domain = "Test", .code = 7, .localizedDescription = "It failed"},
                  UpdaterState::idle},
          {std::optional<platform::StagedUpdate>(), UpdaterState::idle},
          {std::optional(platform::StagedUpdate()), UpdaterState::awaitingRelaunch}}) {
        const auto updater = std::make_shared<FakeUpdater>();
        auto toldIn = UpdaterState::idle;
        updater->checkForUpdates([&](const Error& /*error*/) { toldIn = updater->state(); });
        std::int64_t refusal = 0;
        updater->checkForUpdates([&refusal](const Error& error) { refusal = error.code; });
        EXPECT_EQ(refusal, platform::SQRLUpdaterErrorCheckNotPossible);
        updater->endCycle(test.outcome);
        while (updater->state() == UpdaterState::checking) {
            std::this_thread::yield();
        }
        EXPECT_EQ(updater->state(), test.expected);
        EXPECT_EQ(toldIn, test.outcome ? UpdaterState::idle : UpdaterState::checking);
    }
}

TEST(UpdateCycle, IsRefusedWhileAnotherOneOfTheSameBundleRunsAlsoWithAnotherCache) {
    const auto first = std::make_shared<FakeUpdater>();
    const auto second = std::make_shared<FakeUpdater>();
    first->checkForUpdates([](const Error& /*error*/) {});
    std::promise<std::string> told;
    first->endCycle(std::optional(platform::StagedUpdate()));
    while (first->state() == UpdaterState::checking) {
        std::this_thread::yield();
    }
    const fixtures::TemporaryFolder otherCache;
    setenv("XDG_CACHE_HOME", otherCache.path().c_str(), 1);
    second->checkForUpdates(
        [&told](const Error& error) { told.set_value(error.localizedDescription); });
    EXPECT_EQ(told.get_future().get(), "Another start of this program is updating it already.");
}

TEST(CheckScheduling, EndsWithItsUpdater) {
    const fixtures::LogReader log;
    Schedule schedule;
    schedule.updater.reset();
    schedule.clock->awaitWaiting(0);
    schedule.clock->advance(10s, 0);
    EXPECT_EQ(log.entries(), Lines());
}

}  // namespace
}  // namespace teravolant
