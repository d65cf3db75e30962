#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace teravolant::platform {

/// Computes a BLAKE2b digest of 32 bytes (RFC 7693; `b2sum -l 256`) incrementally.
///
/// Used by one thread at a time.
class Digest {
  public:
    Digest();
    Digest(Digest&& other) noexcept;
    Digest& operator=(Digest&& other) noexcept;
    ~Digest();

    void update(std::string_view bytes);

    /// Returns the digest as 64 lower-case hexadecimal digits. Called once, at the end.
    [[nodiscard]] std::string finish();

  private:
    struct State;
    std::unique_ptr<State> _state;
};

}  // namespace teravolant::platform
