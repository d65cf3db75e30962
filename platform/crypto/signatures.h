#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/core/result.h"

// Ed25519 signatures (RFC 8032). Public keys (32 raw bytes) and signatures (64 raw bytes) are
// passed as base64 text. All operations may be called from any thread. Failures are errors of
// `kCryptoErrorDomain` (digests.h).
namespace teravolant::platform {

/// A private key and its public key.
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

/// Whether the signature of the message was created with the private key of `publicKey`. Returns
/// false for a malformed key or signature.
[[nodiscard]] bool isSignatureValid(std::string_view message, std::string_view signature,
                                    std::string_view publicKey);

}  // namespace teravolant::platform
