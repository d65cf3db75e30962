#include "platform/scheduler.h"

#include <gtest/gtest.h>

#include <atomic>

#include "testing/manual_clock.h"

namespace teravolant::platform {
namespace {

using namespace std::chrono_literals;

TEST(Scheduler, LeavesOutTheTicksThatItMissedAndEndsWithItsHandleOrItsOwner) {
    const auto clock = std::make_shared<fixtures::ManualClock>();
    const RACScheduler scheduler(RACSchedulerPriority::background, clock);
    std::stop_source owner;
    std::atomic<int> ticks = 0;
    (void)scheduler.interval(
        3s, [&ticks] { ++ticks; }, owner.get_token());
    RACDisposable other = scheduler.interval(1h, [] {}, {});
    clock->awaitWaiting(2);
    other.dispose();
    clock->awaitWaiting(1);
    for (const auto& [duration, ticked] : {std::pair{13'000ms, 1}, {1'999ms, 1}, {1ms, 2}}) {
        clock->advance(duration);
        EXPECT_EQ(ticks, ticked);
    }
    owner.request_stop();
    clock->awaitWaiting(0);
}

}  // namespace
}  // namespace teravolant::platform
