#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/core/result.h"

// Ed25519 signatures (RFC 8032). Public keys and signatures travel as base64 text of their raw 32
// and 64 bytes. All operations may be called from any thread.
namespace teravolant::platform {

/// A private key, with the public key that belongs to it.
class SigningKey {
  public:
    /// A new key from the system's random numbers.
    static Result<SigningKey> generate();

    /// The key in a PEM text (RFC 7468) that holds an unencrypted PKCS#8 private key (RFC 8410).
    /// Anything else, other kinds of keys included, is an error that says so.
    static Result<SigningKey> fromPem(std::string_view pem);

    SigningKey(SigningKey&& other) noexcept;
    SigningKey& operator=(SigningKey&& other) noexcept;
    ~SigningKey();

    /// The private key as `fromPem` takes it. The caller keeps it secret.
    [[nodiscard]] Result<std::string> pem() const;

    [[nodiscard]] Result<std::string> publicKey() const;

    [[nodiscard]] Result<std::string> sign(std::string_view message) const;

  private:
    struct Handle;
    explicit SigningKey(std::unique_ptr<Handle> handle);

    std::unique_ptr<Handle> _handle;
};

/// Whether the signature over the message was made with the private key that belongs to the public
/// key. A malformed key or signature is just no valid one.
[[nodiscard]] bool isSignatureValid(std::string_view message, std::string_view signature,
                                    std::string_view publicKey);

}  // namespace teravolant::platform
