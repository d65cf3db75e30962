#pragma once

#include <string_view>
#include <utility>

namespace teravolant::platform {

/// Owns one file descriptor and closes it. -1 stands for none.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : _descriptor(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept : _descriptor(std::exchange(other._descriptor, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset();
            _descriptor = std::exchange(other._descriptor, -1);
        }
        return *this;
    }
    ~UniqueFd() { reset(); }

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
