#pragma once

#include <string_view>
#include <utility>

namespace teravolant::platform {

/// Owns one file descriptor and closes it. -1 stands for no descriptor.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : _descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : _descriptor(std::exchange(other._descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            reset();
            _descriptor = std::exchange(other._descriptor, -1);
        }
        return *this;
    }
    ~FileDescriptor() { reset(); }

    [[nodiscard]] int get() const { return _descriptor; }
    explicit operator bool() const { return _descriptor >= 0; }

    /// Returns the descriptor without closing it. The caller then owns it.
    [[nodiscard]] int release() { return std::exchange(_descriptor, -1); }

    /// Closes the descriptor, if there is one. Preserves `errno`.
    void reset();

  private:
    int _descriptor = -1;
};

/// Opens /dev/null in the place of a closed standard input, output or error, so that a file that is
/// opened later does not become one of them. Called before other threads are started.
void openMissingStandardStreams();

/// Writes all bytes and repeats calls that a signal interrupts. Returns 0 or an `errno` value.
[[nodiscard]] int writeAll(int descriptor, std::string_view bytes);

}  // namespace teravolant::platform
