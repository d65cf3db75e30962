#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>

namespace teravolant::platform {

/// Time as a schedule sees it. All operations may be called from any thread.
class Clock {
  public:
    using Time = std::chrono::steady_clock::time_point;

    virtual ~Clock() = default;

    /// Never goes back.
    [[nodiscard]] virtual Time now() = 0;

    /// Blocks until that time; answers false as soon as a stop is requested before.
    [[nodiscard]] virtual bool waitUntil(Time time, const std::stop_token& stop) = 0;
};

/// The computer's monotonic clock.
[[nodiscard]] std::shared_ptr<Clock> systemClock();

/// The handle of work under way. Dropping it leaves the work alone.
class RACDisposable {
  public:
    explicit RACDisposable(std::stop_source source) : _source(std::move(source)) {}

    /// Ends the work; what it is doing at this moment it still finishes. Any thread.
    void dispose() { _source.request_stop(); }

  private:
    std::stop_source _source;
};

enum class RACSchedulerPriority { background = -32768 };

/// Does work on a background thread, one item at a time.
class RACScheduler {
  public:
    explicit RACScheduler(RACSchedulerPriority priority,
                          std::shared_ptr<Clock> clock = systemClock())
        : _priority(priority), _clock(std::move(clock)) {}

    /// Calls `tick` every interval, the first time one interval from now, until the handle is
    /// disposed of or `owner` is told to stop. A tick that takes long delays the next one but never
    /// meets it; the ticks that it missed are left out.
    ///
    /// The thread is started here; `std::system_error` is thrown when there can be none.
    RACDisposable interval(std::chrono::milliseconds interval, std::function<void()> tick,
                           std::stop_token owner) const;

  private:
    RACSchedulerPriority _priority;
    std::shared_ptr<Clock> _clock;
};

}  // namespace teravolant::platform
