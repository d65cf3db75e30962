#include "platform/crypto/digests.h"

#include <array>

#include <sodium.h>

#include "platform/crypto/encodings.h"

namespace teravolant::platform {
namespace {

constexpr std::size_t kDigestSize = 32;

}  // namespace

struct Digest::State {
    crypto_generichash_blake2b_state blake2b{};
};

Digest::Digest() : _state(std::make_unique<State>()) {
    // Selects the fastest implementation for this processor. Digests work also if it fails.
    [[maybe_unused]] const int selected = sodium_init();
    crypto_generichash_blake2b_init(&_state->blake2b, nullptr, 0, kDigestSize);
}

Digest::Digest(Digest&&) noexcept = default;
Digest& Digest::operator=(Digest&&) noexcept = default;
Digest::~Digest() = default;

void Digest::update(std::string_view bytes) {
    crypto_generichash_blake2b_update(&_state->blake2b, octets(bytes), bytes.size());
}

std::string Digest::finish() {
    std::array<unsigned char, kDigestSize> digest{};
    crypto_generichash_blake2b_final(&_state->blake2b, digest.data(), digest.size());
    return hexText({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

}  // namespace teravolant::platform
