#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/core/result.h"
#include "update_framework/staging.h"
#include "update_framework/update_cycle.h"

namespace teravolant::platform {

/// In bytes.
inline constexpr std::uint64_t kLargestFeed = std::uint64_t{1} << 20U;

/// Fetches a feed document of at most `kLargestFeed` bytes. Returns nothing if the server offers no
/// update (status 204). Fails, with an error that names the status, for any other response than 200
/// with a body.
Result<std::optional<std::string>> fetchFeed(const std::string& url,
                                             const std::stop_token& stop = {});

/// Fetches the feed, verifies its offer, and downloads, unpacks, checks and stages the offered
/// bundle. Returns nothing if the server offers no update. Blocks.
///
/// Does not change the running bundle. Continues with the files of a killed cycle that are intact
/// and removes the others. The caller ensures that only one cycle at a time uses the cache folder
/// and the bundle.
Result<std::optional<StagedUpdate>> runUpdateCycle(const UpdateCycle& cycle);

}  // namespace teravolant::platform
