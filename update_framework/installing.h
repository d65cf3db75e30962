#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/core/result.h"
#include "update_framework/staging.h"

namespace teravolant::platform {

/// What confirms an installed version.
enum class Confirmation : std::uint8_t {
    FirstStarts,  ///< The first start that ends cleanly (see first_starts.h).
    SelfCheck,    ///< The self-check alone: for a bundle that only root can replace.
};

/// Exchanges the staged bundle with its target and lets it check itself there. Exchanges the
/// bundles back if that fails. Blocks.
///
/// An unconfirmed version that is installed is confirmed first, if this process is a start of it;
/// otherwise the update replaces the version before it. The old bundle is kept until the new
/// version is confirmed.
///
/// Returns the error of the step that failed; an old bundle is then at the target, unless the error
/// says that it could not be put back. An update that would fail again is discarded and recorded in
/// `Refusals`; any other stays staged.
[[nodiscard]] Status installStagedUpdate(const std::filesystem::path& cacheFolder,
                                         const StagedUpdate& update, Confirmation confirmation);

/// For a bundle that the self-check confirms: checks an installed version that a kill left
/// unconfirmed, and confirms it or puts the previous bundle back. Returns why it was put back.
[[nodiscard]] Status completeInstallation(const std::filesystem::path& cacheFolder,
                                          const std::filesystem::path& target);

}  // namespace teravolant::platform
