#include "platform/crypto/md5.h"

#include <openssl/evp.h>

#include "platform/core/deleter.h"

namespace teravolant::platform {

struct Md5::Context {
    std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX_free>> handle{EVP_MD_CTX_new()};
    bool works = handle && EVP_DigestInit_ex(handle.get(), EVP_md5(), nullptr) == 1;
};

Md5::Md5() : _context(std::make_unique<Context>()) {}
Md5::~Md5() = default;

void Md5::update(std::string_view bytes) {
    _context->works = _context->works &&
                      EVP_DigestUpdate(_context->handle.get(), bytes.data(), bytes.size()) == 1;
}

std::optional<std::string> Md5::finish() {
    std::string digest(EVP_MAX_MD_SIZE, '\0');
    unsigned length = 0;
    if (!_context->works ||
        EVP_DigestFinal_ex(_context->handle.get(), reinterpret_cast<unsigned char*>(digest.data()),
                           &length) != 1) {
        return std::nullopt;
    }
    digest.resize(length);
    return digest;
}

}  // namespace teravolant::platform
