#include "platform/url.h"

#include <cstdint>
#include <string_view>

namespace teravolant::platform {
namespace {

constexpr std::string_view kLettersAndDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

/// What stands in a path as it is: unreserved characters, sub-delimiters, ":", "@" and "/".
constexpr std::string_view kPathMarks = "-._~!$&'()*+,;=:@/";

bool isIn(std::string_view set, char character) { return set.find(character) != set.npos; }

std::string percentEncoded(std::string_view text, std::string_view allowedMarks) {
    constexpr std::string_view kHexDigits = "0123456789ABCDEF";
    std::string encoded;
    for (const char character : text) {
        if (isIn(kLettersAndDigits, character) || isIn(allowedMarks, character)) {
            encoded += character;
        } else {
            const auto byte = static_cast<std::uint8_t>(character);
            encoded += {'%', kHexDigits[byte >> 4U], kHexDigits[byte & 0xFU]};
        }
    }
    return encoded;
}

}  // namespace

std::string fileUrl(const std::filesystem::path& path) {
    return "file://" + percentEncoded(path.string(), kPathMarks);
}

}  // namespace teravolant::platform
