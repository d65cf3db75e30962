#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/core/result.h"

// The first starts of a new version, and the rollback to the previous one if they fail.
//
// Between the exchange of the bundles and the first start that ends cleanly, the new version is
// unconfirmed: the previous bundle is kept, and each start of the new one is counted. A start fails
// if its process is gone, did not end cleanly and received no termination signal. The start after
// three failed ones exchanges the bundles back. Only the user who installed the version counts and
// confirms.
namespace teravolant::platform {

/// An installed version that no start has confirmed yet.
struct UnconfirmedVersion {
    std::string version;
    std::string digest;  ///< Of the archive.
    std::string previousVersion;
    std::filesystem::path previous;  ///< The bundle that it replaced, in the staging folder.
};

/// Durably records, before the exchange, that the version at `target` will be unconfirmed. The
/// record has no effect while another version is at `target`.
[[nodiscard]] Status recordUnconfirmed(const std::filesystem::path& target,
                                       const UnconfirmedVersion& version);

/// Returns the path of the record. While the version is confirmed, nothing is there.
[[nodiscard]] std::filesystem::path unconfirmedRecordPath(const std::filesystem::path& target);

/// Returns the installed version at `target` if it is unconfirmed. Fails if the record can't be
/// read at this time, or if there is a record but no readable bundle at `target`.
Result<std::optional<UnconfirmedVersion>> unconfirmedVersion(const std::filesystem::path& target);

/// Durably confirms the installed version, if it is unconfirmed, and removes the previous bundle.
/// Failures are logged.
void confirmVersion(const std::filesystem::path& target);

/// Puts the previous bundle back if the installed version is unconfirmed. Returns false, and
/// changes nothing, if it is not, for example because a start has confirmed it in the meantime.
Result<bool> returnToPrevious(const std::filesystem::path& target);

/// Whether this process is a start of an unconfirmed version.
[[nodiscard]] bool isCountedStart();

/// Counts this start if the running version is unconfirmed. Must be called once, first in `main`.
///
/// After three failed starts, puts the previous bundle back, records the archive in `Refusals` and
/// replaces this process by the launcher of the previous bundle, with the arguments `argv`, which
/// end with a null. If that is not possible, logs why and returns.
void beginStart(char* const* argv);

/// Ends the start cleanly: confirms the version if it is unconfirmed. Called at the end of `main`;
/// `beginStart` also makes it the last work of the application's termination.
void endStart();

}  // namespace teravolant::platform
