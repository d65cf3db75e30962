#include "update_framework/retry_schedule.h"

#include <algorithm>
#include <array>

#include "platform/core/error.h"
#include "platform/core/http_error.h"

namespace teravolant::platform {

using std::chrono::seconds;

std::optional<Clock::Time> RetrySchedule::next(Clock::Time now, std::optional<seconds> retryAfter) {
    constexpr std::array<int, 6> kPauses = {2, 4, 8, 16, 32, 60};
    constexpr seconds kLastAttempt = std::chrono::minutes(3);
    const Clock::Time last = _start + kLastAttempt;
    const Clock::Time permitted = now + retryAfter.value_or(seconds(0));
    if (_wasLast || permitted > std::max(last, now)) {
        return std::nullopt;
    }
    const seconds pause(kPauses[std::min(_failures, kPauses.size() - 1)]);
    ++_failures;
    const Clock::Time due = std::max(now + pause, permitted);
    _wasLast = due >= last;
    return _wasLast ? std::max(last, now) : due;
}

bool isTransient(const Error& error) {
    constexpr std::array<std::int64_t, 5> kCodes = {
        HttpError::timedOut, HttpError::cannotFindHost, HttpError::cannotConnectToHost,
        HttpError::connectionLost, HttpError::secureConnectionFailed};
    return error.domain == kHttpErrorDomain &&
           std::ranges::find(kCodes, error.code) != kCodes.end();
}

bool isTransient(int status) {
    return status == 408 || status == 429 || (status >= 500 && status <= 599);
}

}  // namespace teravolant::platform
