#pragma once

#include <cstdint>
#include <memory>
#include <optional>
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

/// Computes a digest of bytes that come piece by piece: MD5 (RFC 1321) or SHA-256 (FIPS 180-4).
///
/// One thread at a time. MD5 tells versions of a thing apart; it proves nothing about who made it.
class Digest {
  public:
    explicit Digest(DigestAlgorithm algorithm);
    Digest(Digest&& other) noexcept;
    Digest& operator=(Digest&& other) noexcept;
    ~Digest();

    void update(std::string_view bytes);

    /// The digest's raw bytes, 16 for MD5 and 32 for SHA-256. Called once, at the end. An error of
    /// `kCryptoErrorDomain` when this machine's policy forbids the algorithm.
    Result<std::string> finish();

  private:
    struct Context;
    std::unique_ptr<Context> _context;
};

}  // namespace teravolant::platform
