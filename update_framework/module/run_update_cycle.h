#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/core/result.h"
#include "update_framework/staging.h"
#include "update_framework/update_cycle.h"

namespace teravolant::platform {

inline constexpr std::uint64_t kLargestFeed = std::uint64_t{1} << 20U;

/// Fetches a feed document of at most `kLargestFeed` bytes. Answers nothing when the server says
/// that there is no update (204); any other answer than 200 with a body is an error that names the
/// status.
Result<std::optional<std::string>> fetchFeed(const std::string& url,
                                             const std::stop_token& stop = {});

/// Fetches the feed, has its answer read, and brings the offered bundle, verified, to where it can
/// be installed from. Answers nothing when the server has no update. Blocks the calling thread.
///
/// The running bundle is not touched. What a cycle that was killed left behind is used where it is
/// whole and removed where it is not. One cycle at a time for one cache folder and one bundle.
Result<std::optional<StagedUpdate>> runUpdateCycle(const UpdateCycle& cycle);

}  // namespace teravolant::platform
