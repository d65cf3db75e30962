#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/http_message.h"
#include "platform/core/result.h"
#include "platform/system/bundle.h"
#include "platform/system/deferred_signal.h"
#include "platform/system/scheduler.h"
#include "update_framework/sqrl_update.h"
#include "update_framework/staging.h"

namespace teravolant::platform {

/// The input of one cycle and the operations of its updater that it calls, on the cycle's thread.
struct UpdateCycle {
    std::string feedURL;
    std::filesystem::path bundlePath;  ///< The running bundle, which the update replaces.
    std::string bundleIdentifier;
    std::string bundleVersion;
    std::vector<std::string> publicKeys;  ///< Ed25519, base64.
    std::filesystem::path cacheFolder;
    std::function<RACSignal<SQRLUpdate>(std::string body)> updateFromJSONData;
    std::function<RACSignal<Bundle>(std::filesystem::path folder)> matchingBundle;
    std::function<void()> downloadBegins;  ///< Called before the archive is downloaded.
    /// Returns the time of the monotonic clock that `pauseUntil` uses.
    std::function<Clock::Time()> now;
    /// Blocks until `time`. Releases the locks of the cycle and acquires them again afterwards.
    /// Fails if another process has a lock by then, or has replaced the bundle.
    std::function<Status(Clock::Time time)> pauseUntil;
    std::function<void(const std::string& message)> log;
    std::function<std::chrono::sys_seconds()> wallTime;  ///< Returns the computer's clock.
    HttpOptions transfer = {};  ///< Its time limits apply to every request.
    /// How long `unpack` may take without a read or a result.
    std::chrono::milliseconds unpackPatience = std::chrono::minutes(1);
};

/// In bytes.
inline constexpr std::uint64_t kLargestFeed = std::uint64_t{1} << 20U;

/// Returns the feed document in a response to a feed request, or nothing if the server offers no
/// update (status 204). Fails, with an error that names status and address, for any other response
/// than 200 with a body.
Result<std::optional<std::string>> feedIn(HttpResponse response);

/// Logs the failed attempt and pauses the cycle until `next`.
[[nodiscard]] Status pauseBeforeRetry(const UpdateCycle& cycle, Clock::Time next,
                                      const Error& error);

/// Returns an error that names the status and the address of a response that is not the expected
/// one.
[[nodiscard]] Status unexpectedStatus(const std::string& what, const HttpResponse& response);

/// Fetches the feed, verifies its offer, and downloads, unpacks, checks and stages the offered
/// bundle. Returns nothing if the server offers no update. Blocks. Repeats requests that fail for
/// reasons that can pass, for about three minutes.
///
/// Does not change the running bundle. Continues with the files of a killed cycle that are intact
/// and removes the others. The caller ensures that only one cycle at a time uses the cache folder
/// and the bundle.
Result<std::optional<StagedUpdate>> runUpdateCycle(const UpdateCycle& cycle);

}  // namespace teravolant::platform
