#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string_view>

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

    /// Opens the file at `path` for reading and appending. Removes an item that another user may
    /// have prepared, and creates a new file: a link, a file of another user, with another name, or
    /// open to others.
    static Result<PrivateFile> open(const std::filesystem::path& path);

    /// Passes all bytes from the beginning to `receive`, whose error ends the reading.
    Status read(const std::function<Status(std::string_view piece)>& receive) const;

    Status append(std::string_view bytes);

    Status truncate();

    /// Notes the size and the times of the file for `isAsNoted`.
    Status note();

    /// Whether the path still leads to this file, with the size and the times that were noted.
    [[nodiscard]] bool isAsNoted() const;

    /// Returns the descriptor. The caller then owns it.
    [[nodiscard]] FileDescriptor release() { return std::move(_file); }

  private:
    /// Device, inode, size, and seconds and nanoseconds of the modification time.
    using Trace = std::array<std::int64_t, 5>;

    std::filesystem::path _path;
    FileDescriptor _file;
    Trace _noted{};
};

}  // namespace teravolant::platform
