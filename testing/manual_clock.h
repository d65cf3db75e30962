#pragma once

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "platform/scheduler.h"

namespace teravolant::fixtures {

/// A clock that stands still until the test moves it on.
class ManualClock : public platform::Clock {
  public:
    Time now() override {
        const std::lock_guard lock(_mutex);
        return _now;
    }

    bool waitUntil(Time time, const std::stop_token& stop) override {
        std::unique_lock lock(_mutex);
        _awaited.push_back(time);
        _changed.notify_all();
        _changed.wait(lock, stop, [this, time] { return _now >= time; });
        _awaited.erase(std::find(_awaited.begin(), _awaited.end(), time));
        _changed.notify_all();
        return !stop.stop_requested();
    }

    /// Moves on, then blocks until `waiting` threads wait for a later time and none for another.
    void advance(std::chrono::milliseconds duration, std::ptrdiff_t waiting = 1) {
        {
            const std::lock_guard lock(_mutex);
            _now += duration;
        }
        _changed.notify_all();
        awaitWaiting(waiting);
    }

    void awaitWaiting(std::ptrdiff_t waiting) {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [this, waiting] {
            return std::ssize(_awaited) == waiting &&
                   std::all_of(_awaited.begin(), _awaited.end(),
                               [this](Time time) { return time > _now; });
        });
    }

  private:
    std::mutex _mutex;
    std::condition_variable_any _changed;
    Time _now;
    std::vector<Time> _awaited;
};

}  // namespace teravolant::fixtures
