#include "platform/crypto/digests.h"

#include <array>

#include <sodium.h>

#include "platform/crypto/encodings.h"

namespace teravolant::platform {
namespace {

constexpr std::size_t kDigestSize = 32;

}  // namespace

struct Digest::State {
    DigestAlgorithm algorithm;
    crypto_hash_sha256_state sha256{};
    crypto_generichash_blake2b_state blake2b{};
};

Digest::Digest(DigestAlgorithm algorithm) : _state(new State{.algorithm = algorithm}) {
    // Selects the fastest implementation for this processor. Digests work also if it fails.
    [[maybe_unused]] const int selected = sodium_init();
    crypto_hash_sha256_init(&_state->sha256);
    crypto_generichash_blake2b_init(&_state->blake2b, nullptr, 0, kDigestSize);
}

Digest::Digest(Digest&&) noexcept = default;
Digest& Digest::operator=(Digest&&) noexcept = default;
Digest::~Digest() = default;

void Digest::update(std::string_view bytes) {
    switch (_state->algorithm) {
        case DigestAlgorithm::Sha256:
            crypto_hash_sha256_update(&_state->sha256, octets(bytes), bytes.size());
            break;
        case DigestAlgorithm::Blake2b256:
            crypto_generichash_blake2b_update(&_state->blake2b, octets(bytes), bytes.size());
            break;
    }
}

std::string Digest::finish() {
    std::array<unsigned char, kDigestSize> digest{};
    switch (_state->algorithm) {
        case DigestAlgorithm::Sha256:
            crypto_hash_sha256_final(&_state->sha256, digest.data());
            break;
        case DigestAlgorithm::Blake2b256:
            crypto_generichash_blake2b_final(&_state->blake2b, digest.data(), digest.size());
            break;
    }
    return hexText({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

}  // namespace teravolant::platform
