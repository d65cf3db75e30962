#pragma once

#include <filesystem>

#include "platform/core/result.h"

namespace teravolant::platform {

/// A temporary folder that only the current user can open. The destructor removes it with its
/// contents.
class PrivateFolder {
  public:
    /// Creates the folder in `$TMPDIR`, else in /tmp.
    static Result<PrivateFolder> create();

    PrivateFolder(PrivateFolder&& other) noexcept : _path(std::move(other._path)) {
        other._path.clear();
    }
    PrivateFolder& operator=(PrivateFolder&&) = delete;
    ~PrivateFolder();

    [[nodiscard]] const std::filesystem::path& path() const { return _path; }

  private:
    explicit PrivateFolder(std::filesystem::path path) : _path(std::move(path)) {}

    std::filesystem::path _path;
};

}  // namespace teravolant::platform
