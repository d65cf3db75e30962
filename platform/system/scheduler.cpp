#include "platform/system/scheduler.h"

#include <sys/resource.h>

#include <condition_variable>
#include <mutex>
#include <thread>

// How it works: each schedule has one detached thread, which alternates between waiting for the
// next due time and calling `tick`. The thread holds one stop source, and `dispose` and the owner's
// stop token both request its stop, which also interrupts the wait. The due times are multiples of
// the interval since the start, so that long ticks cause no drift.
namespace teravolant::platform {
namespace {

class SystemClock : public Clock {
  public:
    Time now() override { return std::chrono::steady_clock::now(); }

    bool waitUntil(Time time, const std::stop_token& stop) override {
        std::mutex mutex;
        std::condition_variable_any stopped;
        std::unique_lock lock(mutex);
        stopped.wait_until(lock, stop, time, [] { return false; });
        return !stop.stop_requested();
    }
};

/// Applies to the calling thread: on Linux each thread has its own nice value.
void applyPriority(RACSchedulerPriority priority) {
    constexpr int kBackgroundNiceness = 10;
    switch (priority) {
        case RACSchedulerPriority::background:
            setpriority(PRIO_PROCESS, 0, kBackgroundNiceness);
    }
}

}  // namespace

std::shared_ptr<Clock> systemClock() {
    static const auto& clock = *new std::shared_ptr<Clock>(std::make_shared<SystemClock>());
    return clock;
}

RACDisposable RACScheduler::interval(std::chrono::milliseconds interval, std::function<void()> tick,
                                     std::stop_token owner) const {
    const std::stop_source source;
    const Clock::Time start = _clock->now();
    // The thread is detached: the owner can be destroyed during a tick, on this very thread, which
    // cannot join itself.
    std::thread([source, start, interval, tick = std::move(tick), owner = std::move(owner),
                 priority = _priority, clock = _clock] {
        applyPriority(priority);
        const std::stop_callback endWithOwner(owner, [source]() mutable { source.request_stop(); });
        Clock::Time next = start + interval;
        while (clock->waitUntil(next, source.get_token())) {
            tick();
            while (next <= clock->now()) {
                next += interval;
            }
        }
    }).detach();
    return RACDisposable(source);
}

}  // namespace teravolant::platform
