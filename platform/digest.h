#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/error.h"

namespace teravolant::platform {

inline constexpr std::string_view NSOSStatusErrorDomain = "NSOSStatusErrorDomain";

/// The codes of `NSOSStatusErrorDomain` that digests and signatures answer with.
enum SecurityErrorCode : std::int64_t {
    errSecInternalComponent = -2070,
    errSecDecode = -26275,
};

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
    /// `NSOSStatusErrorDomain` when this machine's policy forbids the algorithm.
    Result<std::string> finish();

  private:
    struct Context;
    std::unique_ptr<Context> _context;
};

/// Two lower-case hexadecimal digits for each byte.
[[nodiscard]] std::string hexText(std::string_view bytes);

/// Base64 with padding and without line breaks (RFC 4648, section 4).
[[nodiscard]] std::string base64Encoded(std::string_view bytes);

/// The bytes that the text stands for; nothing unless it is exactly what `base64Encoded` makes of
/// them, so that two different texts never stand for the same bytes.
[[nodiscard]] std::optional<std::string> base64Decoded(std::string_view text);

}  // namespace teravolant::platform
