#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string_view>
#include <utility>

#include "platform/core/file_descriptor.h"
#include "platform/core/result.h"

namespace teravolant::platform {

/// An open file that only the current user can read and write. Used by one thread.
///
/// All failures are errors of `NSCocoaErrorDomain` that name the file.
class PrivateFile {
  public:
    /// No file.
    PrivateFile() = default;

    /// Opens the file at `path` for reading and appending, or creates it. First removes an item
    /// that another user may have prepared: a link, or a file that belongs to another user, has
    /// several hard links or permits access to others.
    static Result<PrivateFile> open(const std::filesystem::path& path);

    /// Passes all bytes from the beginning to `receive`, whose error ends the reading.
    Status read(const std::function<Status(std::string_view piece)>& receive) const;

    Status append(std::string_view bytes);

    Status truncate();

    /// Records the size and the modification time of the file for `isUnchanged`.
    Status recordState();

    /// Whether the path still leads to this file, and the file has the recorded state.
    [[nodiscard]] bool isUnchanged() const;

    /// Returns the descriptor. The caller then owns it.
    [[nodiscard]] FileDescriptor release() { return std::move(_file); }

  private:
    /// Device, inode, size, and seconds and nanoseconds of the modification time.
    using State = std::array<std::int64_t, 5>;

    std::filesystem::path _path;
    FileDescriptor _file;
    State _recorded{};
};

}  // namespace teravolant::platform
