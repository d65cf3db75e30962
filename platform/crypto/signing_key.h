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

/// An Ed25519 private key and its public key (RFC 8032). May be used by any thread.
///
/// Public keys (32 raw bytes) and signatures (64 raw bytes) are base64 text. Failures are errors of
/// `kCryptoErrorDomain`.
class SigningKey {
  public:
    /// Generates a key from the system's random numbers.
    static Result<SigningKey> generate();

    /// Reads a PEM text (RFC 7468) with an unencrypted PKCS#8 private key (RFC 8410). Fails for
    /// any other text and any other kind of key.
    static Result<SigningKey> fromPem(std::string_view pem);

    SigningKey(SigningKey&& other) noexcept;
    SigningKey& operator=(SigningKey&& other) noexcept;
    ~SigningKey();

    /// Returns the private key in the form that `fromPem` reads. The caller keeps it secret.
    [[nodiscard]] Result<std::string> pem() const;

    [[nodiscard]] Result<std::string> publicKey() const;

    [[nodiscard]] Result<std::string> sign(std::string_view message) const;

  private:
    struct Handle;
    explicit SigningKey(std::unique_ptr<Handle> handle);

    std::unique_ptr<Handle> _handle;
};

}  // namespace teravolant::platform
