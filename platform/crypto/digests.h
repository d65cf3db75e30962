#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/core/result.h"

namespace teravolant::platform {

inline constexpr std::string_view kCryptoErrorDomain = "NSOSStatusErrorDomain";

/// The codes of `kCryptoErrorDomain`.
namespace CryptoError {
enum Code : std::int64_t { internal = -2070, undecodable = -26275 };
}  // namespace CryptoError

enum class DigestAlgorithm : std::uint8_t { Md5, Sha256 };

/// Computes a digest incrementally: MD5 (RFC 1321) or SHA-256 (FIPS 180-4).
///
/// Used by one thread at a time. MD5 detects changes but not forgeries.
class Digest {
  public:
    explicit Digest(DigestAlgorithm algorithm);
    Digest(Digest&& other) noexcept;
    Digest& operator=(Digest&& other) noexcept;
    ~Digest();

    void update(std::string_view bytes);

    /// Returns the raw bytes of the digest: 16 for MD5, 32 for SHA-256. Called once, at the end.
    /// Fails with an error of `kCryptoErrorDomain` if the system's policy forbids the algorithm.
    Result<std::string> finish();

  private:
    struct Context;
    std::unique_ptr<Context> _context;
};

}  // namespace teravolant::platform
