#include "platform/crypto/encodings.h"

#include <utility>

#include <sodium.h>

namespace teravolant::platform {
namespace {

constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;

}  // namespace

std::string hexText(std::string_view bytes) {
    std::string text(2 * bytes.size() + 1, '\0');
    sodium_bin2hex(text.data(), text.size(), octets(bytes), bytes.size());
    text.pop_back();
    return text;
}

std::string base64Encoded(std::string_view bytes) {
    std::string text(sodium_base64_encoded_len(bytes.size(), kVariant), '\0');
    sodium_bin2base64(text.data(), text.size(), octets(bytes), bytes.size(), kVariant);
    text.pop_back();
    return text;
}

std::optional<std::string> base64Decoded(std::string_view text) {
    std::string bytes(text.size() / 4 * 3 + 1, '\0');
    std::size_t length = 0;
    if (sodium_base642bin(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), text.data(),
                          text.size(), nullptr, &length, nullptr, kVariant) != 0) {
        return std::nullopt;
    }
    bytes.resize(length);
    // The decoder takes some bytes that are not ASCII for digits.
    return base64Encoded(bytes) == text ? std::optional(std::move(bytes)) : std::nullopt;
}

}  // namespace teravolant::platform
