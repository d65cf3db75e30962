#pragma once

#include <filesystem>

// The directories that the platform assigns. All operations may be called from any thread.
namespace teravolant::platform {

/// Returns `$HOME`, else the entry of the password database, with links resolved, so that paths
/// below it compare equal with the executable paths of running processes. Returns "/nonexistent"
/// for an account without a home directory.
[[nodiscard]] std::filesystem::path homeDirectoryForCurrentUser();

/// Returns `$XDG_DATA_HOME`, else ~/.local/share.
[[nodiscard]] std::filesystem::path applicationSupportDirectory();

/// Returns `$XDG_CONFIG_HOME`, else ~/.config.
[[nodiscard]] std::filesystem::path configurationDirectory();

/// Returns `$XDG_CACHE_HOME`, else ~/.cache.
[[nodiscard]] std::filesystem::path cachesDirectory();

/// Returns the directory where system services log: /var/log.
[[nodiscard]] std::filesystem::path machineLogDirectory();

/// Whether `path` is `folder` or below it. Compares the components as they are written: the caller
/// resolves links and "..".
[[nodiscard]] bool isInside(const std::filesystem::path& path, const std::filesystem::path& folder);

}  // namespace teravolant::platform
