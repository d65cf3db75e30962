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
using platform::Application;
using platform::Error;
using platform::UpdaterState;
using Lines = std::vector<std::string>;
using Outcome = platform::Result<std::optional<platform::StagedUpdate>>;

const Error kFailure{.domain = "Test", .code = 7, .localizedDescription = "It failed"};

/// An updater whose cycle goes on until the test ends it.
class FakeUpdater : public ClientUpdater {
  public:
    FakeUpdater() : ClientUpdater(platform::URLRequest()) {}

    using ClientUpdater::setState;

    /// Blocks until the updater is no longer checking.
    void endCycle(Outcome outcome) {
        _outcome.set_value(std::move(outcome));
        while (state() == UpdaterState::checking) {
            std::this_thread::yield();
        }
    }

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
    std::shared_ptr<fixtures::ManualClock> clock = std::make_shared<fixtures::ManualClock>();

    Schedule() {
        (void)updater->startChecksImmediately(clock);
        clock->awaitWaiting(1);
    }

    /// Returns when the tick is over.
    void tick() const { clock->advance(3s); }
};

using Script = void (*)(const Schedule&);

/// Runs a script beside the application loop, as the user of a whole program would see it.
class ScriptDelegate : public platform::ApplicationDelegate {
  public:
    explicit ScriptDelegate(Script script) : _script(script) {}

    void applicationDidFinishLaunching(const platform::LaunchNotification& /*unused*/) override {
        std::thread([script = _script] {
            const Schedule schedule;
            script(schedule);
            std::promise<void>().get_future().wait();  // The process ends meanwhile.
        }).detach();
    }
    void applicationWillTerminate() override {
        const bool onMainThread = std::this_thread::get_id() == _mainThread;
        Logger::sharedInstance().logMessage(onMainThread ? "terminated" : "wrong thread");
    }

  private:
    Script _script;
    std::thread::id _mainThread = std::this_thread::get_id();
};

/// The log of a process of its own, which the script's schedules must bring to its end.
Lines logOfProcess(Script script) {
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

TEST(CheckScheduling, StartsOneCheckInAProcessAndEndsTheApplicationWhenThatIsOver) {
    const std::string start = "[ClientUpdater::startChecksImmediately] do CheckUpdate";
    const std::string wait = "[ClientUpdater::startChecksImmediately] wait CheckUpdate result ";
    const std::pair<Script, Lines> table[] = {
        {[](const Schedule& schedule) {
             schedule.clock->advance(2999ms);
             Logger::sharedInstance().logMessage("3 s");
             schedule.clock->advance(1ms);
             schedule.tick();
             for (const auto state : {UpdaterState::downloading, UpdaterState::awaitingRelaunch}) {
                 schedule.updater->setState(state);
                 schedule.tick();
             }
         },
         {"3 s", start, wait + "1", wait + "2", wait + "3", "terminated"}},
        {[](const Schedule& schedule) {
             schedule.tick();
             schedule.updater->endCycle(kFailure);
             schedule.tick();
         },
         {start, "Error checking for updates: Error Domain=Test Code=7 \"It failed\"", wait + "0",
          "terminated"}},
        {[](const Schedule& schedule) {
             const Schedule second;
             schedule.tick();
             schedule.tick();
             second.tick();
         },
         {start, wait + "1", wait + "0", "terminated"}},
    };
    for (const auto& [script, lines] : table) {
        EXPECT_EQ(logOfProcess(script), lines);
    }
}

TEST(CheckScheduling, EndsWithItsUpdater) {
    const fixtures::LogReader log;
    Schedule schedule;
    schedule.updater.reset();
    schedule.clock->awaitWaiting(0);
    schedule.clock->advance(10s, 0);
    EXPECT_EQ(log.entries(), Lines());
}

TEST(UpdateCycle, LeavesTheUpdaterIdleUnlessItFoundAnUpdateAndTellsItsErrorBefore) {
    const std::pair<Outcome, UpdaterState> table[] = {
        {kFailure, UpdaterState::idle},
        {std::optional<platform::StagedUpdate>(), UpdaterState::idle},
        {std::optional(platform::StagedUpdate()), UpdaterState::awaitingRelaunch}};
    for (const auto& [outcome, expected] : table) {
        const auto updater = std::make_shared<FakeUpdater>();
        auto toldIn = UpdaterState::idle;
        updater->checkForUpdates([&](const Error& /*error*/) { toldIn = updater->state(); });
        std::int64_t refusal = 0;
        updater->checkForUpdates([&refusal](const Error& error) { refusal = error.code; });
        EXPECT_EQ(refusal, platform::SQRLUpdaterErrorCheckNotPossible);
        updater->endCycle(outcome);
        EXPECT_EQ(updater->state(), expected);
        EXPECT_EQ(toldIn, outcome ? UpdaterState::idle : UpdaterState::checking);
    }
}

TEST(UpdateCycle, IsRefusedWhileAnotherOneOfTheSameBundleRunsAlsoWithAnotherCache) {
    const auto first = std::make_shared<FakeUpdater>();
    const auto second = std::make_shared<FakeUpdater>();
    first->checkForUpdates([](const Error& /*error*/) {});
    first->endCycle(std::optional(platform::StagedUpdate()));
    const fixtures::TemporaryFolder otherCache;
    setenv("XDG_CACHE_HOME", otherCache.path().c_str(), 1);
    std::promise<std::string> told;
    second->checkForUpdates(
        [&told](const Error& error) { told.set_value(error.localizedDescription); });
    EXPECT_EQ(told.get_future().get(), "Another start of this program is updating it already.");
}

}  // namespace
}  // namespace teravolant
