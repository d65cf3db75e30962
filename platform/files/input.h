#pragma once

#include <cstddef>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

#include "platform/core/file_descriptor.h"
#include "platform/core/result.h"

namespace teravolant::platform {

/// An open file, pipe or terminal that is read once, from its current position. Used by one thread.
///
/// All failures are errors of `NSCocoaErrorDomain` that name the input.
class Input {
  public:
    /// `name` is for messages.
    Input(FileDescriptor file, std::string name) : _file(std::move(file)), _name(std::move(name)) {}

    /// Does not wait for the writer of a named pipe: reading does.
    static Result<Input> open(const std::string& path);

    static Result<Input> standardInput();

    /// Returns the permission bits of a regular file, or nothing for any other input.
    [[nodiscard]] std::optional<unsigned> filePermissions() const;

    /// Blocks until the end of the input. Fails with `NSFileReadTooLargeError` if there are more
    /// than `most` bytes, and with `NSUserCancelledError` soon after a stop request.
    [[nodiscard]] Result<std::string> readAll(std::size_t most, const std::stop_token& stop) const;

    /// Like `readAll`, up to the end of the first line. Returns it without its line feed. May read
    /// more of the input.
    [[nodiscard]] Result<std::string> readLine(std::size_t most, const std::stop_token& stop) const;

  private:
    enum class Until : bool { End, LineFeed };
    [[nodiscard]] Result<std::string> read(Until until, std::size_t most,
                                           const std::stop_token& stop) const;

    FileDescriptor _file;
    std::string _name;
};

}  // namespace teravolant::platform
