#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/core/http_message.h"
#include "platform/core/result.h"
#include "platform/system/scheduler.h"
#include "update_framework/update_cycle.h"

namespace teravolant::platform {

/// In bytes.
inline constexpr std::uint64_t kLargestFeed = std::uint64_t{1} << 20U;

/// Returns the feed document, or nothing if the server offers no update. Repeats a request that
/// fails for a reason that can pass, for about three minutes. Blocks.
Result<std::optional<std::string>> downloadFeed(const UpdateCycle& cycle);

/// Returns the feed document in a response to a feed request, or nothing for status 204. Fails,
/// with an error that names status and address, for any other response than 200 with a body.
Result<std::optional<std::string>> feedIn(HttpResponse response);

/// Logs the failed attempt and pauses the cycle until `next`.
[[nodiscard]] Status pauseBeforeRetry(const UpdateCycle& cycle, Clock::Time next,
                                      const Error& error);

/// Returns an error that names the status and the address of a response that is not the expected
/// one.
[[nodiscard]] Status unexpectedStatus(const std::string& what, const HttpResponse& response);

}  // namespace teravolant::platform
