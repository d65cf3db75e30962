#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/core/result.h"

namespace teravolant::platform {

inline constexpr std::string_view kCryptoErrorDomain = "NSOSStatusErrorDomain";

/// The codes of `kCryptoErrorDomain`.
namespace CryptoError {
enum Code : std::int64_t {
    internal = -2070,
    authenticationFailed = -25293,  ///< A wrong passphrase.
    undecodable = -26275,
};
}  // namespace CryptoError

/// An Ed25519 private key and its public key (RFC 8032). May be used by any thread.
///
/// Public keys (32 raw bytes) and signatures (64 raw bytes) are base64 text. Failures are errors of
/// `kCryptoErrorDomain`.
class SigningKey {
  public:
    /// Generates a key from the system's random numbers.
    static Result<SigningKey> generate();

    /// Returns the passphrase of an encrypted key, or the error that `fromPem` then returns.
    using Passphrase = std::function<Result<std::string>()>;

    /// Reads a PEM text (RFC 7468) with a PKCS#8 private key (RFC 8410, RFC 5958). Fails for any
    /// other text and any other kind of key. Calls `passphrase` at most once, and only for an
    /// encrypted key; without it, an encrypted key is refused.
    static Result<SigningKey> fromPem(std::string_view pem, const Passphrase& passphrase = {});

    SigningKey(SigningKey&& other) noexcept;
    SigningKey& operator=(SigningKey&& other) noexcept;
    ~SigningKey();

    /// Returns the unencrypted private key in the form that `fromPem` reads. The caller keeps it
    /// secret.
    [[nodiscard]] Result<std::string> pem() const;

    [[nodiscard]] Result<std::string> publicKey() const;

    [[nodiscard]] Result<std::string> sign(std::string_view message) const;

  private:
    struct Handle;
    explicit SigningKey(std::unique_ptr<Handle> handle);

    std::unique_ptr<Handle> _handle;
};

}  // namespace teravolant::platform
