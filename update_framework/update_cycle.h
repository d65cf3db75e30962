#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "platform/core/http_message.h"
#include "platform/core/result.h"
#include "platform/system/bundle.h"
#include "platform/system/deferred_signal.h"
#include "platform/system/scheduler.h"
#include "update_framework/document_history.h"
#include "update_framework/installation.h"
#include "update_framework/sqrl_update.h"
#include "update_framework/staging.h"

namespace teravolant::platform {

/// The input of one cycle and the operations of its updater that it calls, on the cycle's thread.
struct UpdateCycle {
    std::string feedURL;
    std::filesystem::path bundlePath;  ///< The running bundle, which the update replaces.
    Installation installation;
    std::filesystem::path cacheFolder;
    DocumentHistory history;
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
    /// Whether to take an offer that the roll-out does not yet give to this installation.
    bool ignoresRollout = false;
    /// Optional. Called for each received piece of the archive, with the number of bytes that are
    /// there and the archive's size in bytes.
    std::function<void(std::uint64_t done, std::uint64_t size)> progress = {};
    HttpOptions transfer = {};  ///< Its time limits apply to every request.
    /// How long `unpack` may take without a read or a result.
    std::chrono::milliseconds unpackPatience = std::chrono::minutes(1);
};

/// Fetches the feed, verifies its offer, and downloads, unpacks, checks and stages the offered
/// bundle. Returns the staged update, or nothing if none is taken. Blocks. Repeats requests that
/// fail for reasons that can pass, for about three minutes.
///
/// Returns an update that an earlier cycle staged, whatever the server sends, unless a signed offer
/// withdraws it or a newer one can be staged; an error is then logged only.
///
/// Does not change the running bundle. Continues with the files of a killed cycle that are intact
/// and removes the others. The caller ensures that only one cycle at a time uses the cache folder
/// and the bundle.
Result<std::optional<StagedUpdate>> runUpdateCycle(const UpdateCycle& cycle);

}  // namespace teravolant::platform
