#include "platform/scheduler.h"

#include <gtest/gtest.h>

#include <atomic>

#include "tests/manual_clock.h"

namespace teravolant::platform {
namespace {

using namespace std::chrono_literals;

class Scheduler : public ::testing::Test {
  protected:
    RACDisposable start() {
        return RACScheduler(RACSchedulerPriority::background, clock)
            .interval(
                3s, [this] { ++ticks; }, owner.get_token());
    }

    std::shared_ptr<testing::ManualClock> clock = std::make_shared<testing::ManualClock>();
    std::stop_source owner;
    std::atomic<int> ticks = 0;
};

TEST_F(Scheduler, TicksAfterEachIntervalAndLeavesOutWhatItMissed) {
    RACDisposable handle = start();
    clock->awaitWaiting(1);
    clock->advance(2999ms);
    EXPECT_EQ(ticks, 0);
    clock->advance(1ms);
    EXPECT_EQ(ticks, 1);
    clock->advance(10s);  // 13 s: the ticks at 9 s and 12 s are left out.
    EXPECT_EQ(ticks, 2);
    clock->advance(1999ms);
    EXPECT_EQ(ticks, 2);
    clock->advance(1ms);
    EXPECT_EQ(ticks, 3);
    handle.dispose();
    clock->awaitWaiting(0);
}

TEST_F(Scheduler, EndsWithItsHandleOrItsOwnerButNotWhenTheHandleIsDropped) {
    RACDisposable handle = start();
    (void)start();
    clock->awaitWaiting(2);
    handle.dispose();
    clock->awaitWaiting(1);
    clock->advance(3s);
    EXPECT_EQ(ticks, 1);
    owner.request_stop();
    clock->awaitWaiting(0);
    clock->advance(3s, 0);
    EXPECT_EQ(ticks, 1);
}

TEST(SystemClock, WaitsUntilTheTimeComesOrAStopIsRequested) {
    std::stop_source stop;
    const auto start = systemClock()->now();
    EXPECT_TRUE(systemClock()->waitUntil(start + 1ms, stop.get_token()));
    EXPECT_GE(systemClock()->now(), start + 1ms);
    stop.request_stop();
    EXPECT_FALSE(systemClock()->waitUntil(start + 1h, stop.get_token()));
}

}  // namespace
}  // namespace teravolant::platform
