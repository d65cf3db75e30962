#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace teravolant::platform {

enum class DigestAlgorithm : std::uint8_t { Sha256, Blake2b256 };

/// Computes a digest incrementally: SHA-256 (FIPS 180-4) or BLAKE2b with 32 bytes (RFC 7693).
///
/// Used by one thread at a time.
class Digest {
  public:
    explicit Digest(DigestAlgorithm algorithm);
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
