#include "platform/crypto/digests.h"

#include <array>

#include <openssl/evp.h>

#include "platform/core/deleter.h"
#include "platform/core/error.h"

namespace teravolant::platform {
namespace {

const EVP_MD* implementationOf(DigestAlgorithm algorithm) {
    switch (algorithm) {
        case DigestAlgorithm::Md5:
            return EVP_md5();
        case DigestAlgorithm::Sha256:
            return EVP_sha256();
    }
    return nullptr;
}

}  // namespace

struct Digest::Context {
    std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX_free>> handle{EVP_MD_CTX_new()};
    bool works = false;
};

Digest::Digest(DigestAlgorithm algorithm) : _context(std::make_unique<Context>()) {
    EVP_MD_CTX* handle = _context->handle.get();
    _context->works =
        handle != nullptr && EVP_DigestInit_ex(handle, implementationOf(algorithm), nullptr) == 1;
}

Digest::Digest(Digest&&) noexcept = default;
Digest& Digest::operator=(Digest&&) noexcept = default;
Digest::~Digest() = default;

void Digest::update(std::string_view bytes) {
    _context->works = _context->works &&
                      EVP_DigestUpdate(_context->handle.get(), bytes.data(), bytes.size()) == 1;
}

Result<std::string> Digest::finish() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    if (!_context->works ||
        EVP_DigestFinal_ex(_context->handle.get(), digest.data(), &length) != 1) {
        return Error{.domain = std::string(kCryptoErrorDomain),
                     .code = CryptoError::internal,
                     .localizedDescription =
                         "The digest could not be computed: the system does not "
                         "provide its algorithm."};
    }
    _context->works = false;
    return std::string(reinterpret_cast<const char*>(digest.data()), length);
}

}  // namespace teravolant::platform
