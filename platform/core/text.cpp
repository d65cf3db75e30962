#include "platform/core/text.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace teravolant::platform {
namespace {

/// The sequence that a lead byte begins: the number of bytes that follow it, and the range of the
/// first of them.
struct Sequence {
    std::size_t following;
    std::uint8_t lowest;
    std::uint8_t highest;
};

constexpr std::size_t kNoSequence = 4;

Sequence sequenceOf(std::uint8_t lead) {
    if (lead < 0x80) {
        return {0, 0, 0};
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return {1, 0x80, 0xBF};
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return {2, static_cast<std::uint8_t>(lead == 0xE0 ? 0xA0 : 0x80),
                static_cast<std::uint8_t>(lead == 0xED ? 0x9F : 0xBF)};
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        return {3, static_cast<std::uint8_t>(lead == 0xF0 ? 0x90 : 0x80),
                static_cast<std::uint8_t>(lead == 0xF4 ? 0x8F : 0xBF)};
    }
    return {kNoSequence, 0, 0};
}

/// Returns the number of bytes of the first character, or 0 if it is malformed.
std::size_t lengthOfCharacter(std::string_view bytes) {
    const Sequence sequence = sequenceOf(static_cast<std::uint8_t>(bytes.front()));
    if (sequence.following == kNoSequence || sequence.following >= bytes.size()) {
        return 0;
    }
    for (std::size_t offset = 1; offset <= sequence.following; ++offset) {
        const auto byte = static_cast<std::uint8_t>(bytes[offset]);
        const bool first = offset == 1;
        if (byte < (first ? sequence.lowest : 0x80) || byte > (first ? sequence.highest : 0xBF)) {
            return 0;
        }
    }
    return sequence.following + 1;
}

/// A placeholder in a format: its length, and the number of its value, where 0 means the next
/// value. The length is 0 if there is no placeholder.
struct Placeholder {
    std::size_t length = 0;
    std::size_t number = 0;
};

Placeholder placeholderAt(std::string_view format) {
    if (format.starts_with("%@")) {
        return {2, 0};
    }
    const bool numbered = format.size() >= 4 && format[0] == '%' && format[1] >= '1' &&
                          format[1] <= '9' && format.substr(2, 2) == "$@";
    return numbered ? Placeholder{4, static_cast<std::size_t>(format[1] - '0')} : Placeholder{};
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t length = lengthOfCharacter(bytes);
        if (length == 0) {
            return false;
        }
        bytes.remove_prefix(length);
    }
    return true;
}

std::string escaped(std::string_view text, std::size_t most) {
    constexpr std::string_view kHexDigits = "0123456789ABCDEF";
    std::string result;
    while (!text.empty()) {
        if (result.size() >= most) {
            return result + "…";
        }
        const auto byte = static_cast<std::uint8_t>(text.front());
        const std::size_t length = lengthOfCharacter(text);
        const bool isLateControl = length == 2 && byte == 0xC2 &&
                                   static_cast<std::uint8_t>(text[1]) < 0xA0;  // U+0080 to U+009F
        if (length == 0 || byte < ' ' || byte == 0x7F || isLateControl) {
            const std::uint8_t shown = isLateControl ? static_cast<std::uint8_t>(text[1]) : byte;
            result += {'\\', 'x', kHexDigits[shown >> 4U], kHexDigits[shown & 0xFU]};
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

bool isAscii(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(),
                       [](char byte) { return static_cast<std::uint8_t>(byte) < 0x80; });
}

std::string quoted(const std::string& text) { return "“" + text + "”"; }

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    for (char& letter : lower) {
        letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    }
    return lower;
}

bool equalIgnoringCase(std::string_view left, std::string_view right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

std::string filled(std::string_view format, std::initializer_list<std::string_view> values) {
    std::string text;
    std::size_t next = 0;
    while (!format.empty()) {
        const Placeholder placeholder = placeholderAt(format);
        const std::size_t index = placeholder.number == 0 ? next : placeholder.number - 1;
        if (placeholder.length == 0 || index >= values.size()) {
            text += format.front();
            format.remove_prefix(1);
            continue;
        }
        text += values.begin()[index];
        next += placeholder.number == 0 ? 1 : 0;
        format.remove_prefix(placeholder.length);
    }
    return text;
}

}  // namespace teravolant::platform
