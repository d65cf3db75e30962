#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>

namespace teravolant::platform {

/// The time source of a schedule. All operations may be called from any thread.
class Clock {
  public:
    using Time = std::chrono::steady_clock::time_point;

    virtual ~Clock() = default;

    /// Returns the current time, which never decreases.
    [[nodiscard]] virtual Time now() = 0;

    /// Blocks until `time` and returns true, or returns false as soon as a stop is requested.
    [[nodiscard]] virtual bool waitUntil(Time time, const std::stop_token& stop) = 0;
};

/// Returns the computer's monotonic clock.
[[nodiscard]] std::shared_ptr<Clock> systemClock();

/// The handle of running work. Destroying the handle does not stop the work.
class RACDisposable {
  public:
    explicit RACDisposable(std::stop_source source) : _source(std::move(source)) {}

    /// Stops the work after its current step. May be called from any thread.
    void dispose() { _source.request_stop(); }

  private:
    std::stop_source _source;
};

enum class RACSchedulerPriority { background = -32768 };

/// Runs periodic work on a background thread of its own.
class RACScheduler {
  public:
    explicit RACScheduler(RACSchedulerPriority priority,
                          std::shared_ptr<Clock> clock = systemClock())
        : _priority(priority), _clock(std::move(clock)) {}

    /// Calls `tick` at multiples of `interval` from now, first after one interval, until the handle
    /// is disposed of or `owner` requests a stop. Ticks never overlap: the ones that fall into a
    /// longer tick are skipped.
    ///
    /// Throws `std::system_error` if the thread cannot be started.
    RACDisposable interval(std::chrono::milliseconds interval, std::function<void()> tick,
                           std::stop_token owner) const;

  private:
    RACSchedulerPriority _priority;
    std::shared_ptr<Clock> _clock;
};

}  // namespace teravolant::platform
