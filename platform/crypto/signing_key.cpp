#include "platform/crypto/signing_key.h"

#include <algorithm>
#include <array>
#include <climits>
#include <optional>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include "platform/core/deleter.h"
#include "platform/core/error.h"
#include "platform/crypto/encodings.h"

namespace teravolant::platform {
namespace {

constexpr std::size_t kPublicKeySize = 32;
constexpr std::size_t kSignatureSize = 64;

using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using SignatureContext = std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX_free>>;
using Bio = std::unique_ptr<BIO, Deleter<BIO_free_all>>;

Status securityError(CryptoError::Code code, std::string description) {
    // An entry left in OpenSSL's per-thread queue looks like the failure of a later operation.
    ERR_clear_error();
    return Error{.domain = std::string(kCryptoErrorDomain),
                 .code = code,
                 .localizedDescription = std::move(description)};
}

/// The passphrase of one key while OpenSSL decodes it.
struct PassphraseRequest {
    const SigningKey::Passphrase& ask;
    std::optional<Result<std::string>> entered = {};
};

/// OpenSSL's callback for the passphrase of an encrypted key. Returns its length, or -1 for none.
/// OpenSSL may call it again after a failure. Never lets OpenSSL ask at the terminal.
int enterPassphrase(char* buffer, int size, int /*writes*/, void* context) {
    auto& request = *static_cast<PassphraseRequest*>(context);
    if (!request.entered) {
        request.entered = request.ask
                              ? request.ask()
                              : Result<std::string>(securityError(CryptoError::undecodable,
                                                                  "The private key is encrypted."));
    }
    const auto& entered = *request.entered;
    if (!entered || entered->size() > static_cast<std::size_t>(size)) {
        return -1;
    }
    std::ranges::copy(*entered, buffer);
    return static_cast<int>(entered->size());
}

Status decodingError(const PassphraseRequest& request) {
    if (!request.entered) {
        return securityError(CryptoError::undecodable,
                             "The text is not an Ed25519 private key in PEM form.");
    }
    if (!*request.entered) {
        ERR_clear_error();
        return request.entered->error();
    }
    return securityError(CryptoError::authenticationFailed,
                         "The passphrase does not decrypt the private key.");
}

}  // namespace

struct SigningKey::Handle {
    Key key;
};

SigningKey::SigningKey(std::unique_ptr<Handle> handle) : _handle(std::move(handle)) {}
SigningKey::SigningKey(SigningKey&&) noexcept = default;
SigningKey& SigningKey::operator=(SigningKey&&) noexcept = default;
SigningKey::~SigningKey() = default;

Result<SigningKey> SigningKey::generate() {
    Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    if (!key) {
        return securityError(CryptoError::internal, "The signing key could not be generated.");
    }
    return SigningKey(std::make_unique<Handle>(Handle{std::move(key)}));
}

Result<SigningKey> SigningKey::fromPem(std::string_view pem, const Passphrase& passphrase) {
    const Bio input(
        BIO_new_mem_buf(pem.data(), pem.size() > INT_MAX ? INT_MAX : static_cast<int>(pem.size())));
    PassphraseRequest request{.ask = passphrase};
    Key key(input ? PEM_read_bio_PrivateKey(input.get(), nullptr, enterPassphrase, &request)
                  : nullptr);
    if (!key) {
        return decodingError(request);
    }
    if (EVP_PKEY_is_a(key.get(), "ED25519") != 1) {
        return securityError(CryptoError::undecodable, "The private key is not an Ed25519 key.");
    }
    return SigningKey(std::make_unique<Handle>(Handle{std::move(key)}));
}

Result<std::string> SigningKey::pem() const {
    const Bio output(BIO_new(BIO_s_mem()));
    char* text = nullptr;
    if (!output || PEM_write_bio_PKCS8PrivateKey(output.get(), _handle->key.get(), nullptr, nullptr,
                                                 0, nullptr, nullptr) != 1) {
        return securityError(CryptoError::internal, "The signing key could not be written.");
    }
    const long length = BIO_get_mem_data(output.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

Result<std::string> SigningKey::publicKey() const {
    std::array<unsigned char, kPublicKeySize> raw{};
    std::size_t length = raw.size();
    if (EVP_PKEY_get_raw_public_key(_handle->key.get(), raw.data(), &length) != 1) {
        return securityError(CryptoError::internal, "The signing key has no public key.");
    }
    return base64Encoded({reinterpret_cast<const char*>(raw.data()), length});
}

Result<std::string> SigningKey::sign(std::string_view message) const {
    const SignatureContext context(EVP_MD_CTX_new());
    std::array<unsigned char, kSignatureSize> signature{};
    std::size_t length = signature.size();
    if (!context ||
        EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, _handle->key.get()) != 1 ||
        EVP_DigestSign(context.get(), signature.data(), &length, octets(message), message.size()) !=
            1) {
        return securityError(CryptoError::internal, "The text could not be signed.");
    }
    return base64Encoded({reinterpret_cast<const char*>(signature.data()), length});
}

}  // namespace teravolant::platform
