#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

#include "platform/core/http_message.h"
#include "platform/system/scheduler.h"

namespace teravolant::platform {

/// Decides when a request that failed is sent again.
///
/// The pauses are 2, 4, 8, 16, 32 and 60 seconds; the last attempt is three minutes after the
/// first, or follows at once if the attempts before it took longer.
class RetrySchedule {
  public:
    /// The first attempt begins at `start`.
    explicit RetrySchedule(Clock::Time start) : _start(start) {}

    /// Returns the time of the next attempt after an attempt that failed at `now`. Returns nothing
    /// if that was the last, or if the server asks for a pause (Retry-After) beyond the last
    /// attempt.
    std::optional<Clock::Time> next(Clock::Time now,
                                    std::optional<std::chrono::seconds> retryAfter);

    /// The attempt that failed at `now` has made progress: it counts as the first one.
    void restart(Clock::Time now) { *this = RetrySchedule(now); }

  private:
    Clock::Time _start;
    std::size_t _failures = 0;
    bool _wasLast = false;
};

/// Whether the same request may succeed soon: the error of an `HttpTransfer` is a failure of DNS
/// look-up, of the connection or of the transfer, or a timeout.
[[nodiscard]] bool isTransient(const Error& error);

/// The same for the status of a response: 408, 429 and 5xx (RFC 9110, section 15).
[[nodiscard]] bool isTransient(int status);

}  // namespace teravolant::platform
