#pragma once

#include <string_view>
#include <utility>

namespace teravolant::platform {

/// Owns one file descriptor and closes it. -1 stands for none.
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

    /// Leaves the descriptor to the caller.
    [[nodiscard]] int release() { return std::exchange(_descriptor, -1); }

    /// Closes now; without an effect when there is nothing to close. Keeps `errno`.
    void reset();

  private:
    int _descriptor = -1;
};

/// Writes all bytes, whatever signals come; answers `errno` or 0.
[[nodiscard]] int writeAll(int descriptor, std::string_view bytes);

}  // namespace teravolant::platform
