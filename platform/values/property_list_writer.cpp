#include "platform/values/property_list.h"

#include <array>
#include <charconv>
#include <cmath>

#include "platform/core/text.h"
#include "platform/core/utc_time.h"

namespace teravolant::platform {
namespace {

std::string escaped(std::string_view text) {
    std::string output;
    while (!text.empty()) {
        std::size_t length = 1;
        while (length < 4 && !isValidUtf8(text.substr(0, length))) {
            ++length;
        }
        // A byte that begins no character is dropped on its own.
        const bool isCharacter = isValidUtf8(text.substr(0, length));
        const std::string_view character = text.substr(0, isCharacter ? length : 1);
        text.remove_prefix(character.size());
        if (character == "&") {
            output += "&amp;";
        } else if (character == "<") {
            output += "&lt;";
        } else if (character == ">") {
            output += "&gt;";
        } else if (character == "\r") {
            output += "&#13;";  // XML reads a bare CR as LF.
        } else if (isCharacter && character != "\uFFFE" && character != "\uFFFF" &&
                   (character == "\t" || character == "\n" || character >= " ")) {
            output += character;
        }
    }
    return output;
}

std::string realText(double real) {
    std::array<char, 32> buffer{};
    const auto result = std::to_chars(buffer.begin(), buffer.end(), real);
    return std::isnan(real) ? "nan" : std::string(buffer.begin(), result.ptr);
}

/// Base64 (RFC 4648, section 4).
std::string dataText(const Value::Data& data) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t begin = 0; begin < data.size(); begin += 3) {
        const std::size_t count = std::min<std::size_t>(3, data.size() - begin);
        std::uint32_t group = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            group = group << 8U | (index < count ? data[begin + index] : 0U);
        }
        for (std::size_t index = 0; index < 4; ++index) {
            text += index <= count ? kDigits[group >> (18 - 6 * index) & 0x3FU] : '=';
        }
    }
    return text;
}

std::string element(const std::string& name, const std::string& content) {
    return content.empty() ? "<" + name + "/>\n" : "<" + name + ">" + content + "</" + name + ">\n";
}

/// Returns the value as an element with a final line feed. Its first line has `indentation`.
std::string elementOf(const Value& value, const std::string& indentation) {
    if (const auto* text = value.text()) {
        return element("string", escaped(*text));
    }
    if (const auto* boolean = value.boolean()) {
        return element(*boolean ? "true" : "false", "");
    }
    if (const auto* integer = value.integer()) {
        return element("integer", std::to_string(*integer));
    }
    if (const auto* real = value.real()) {
        return element("real", realText(*real));
    }
    if (const auto* date = value.date()) {
        return element("date", utcTimeText(*date));
    }
    if (const auto* data = value.data()) {
        return element("data", dataText(*data));
    }
    if (value.isNull()) {
        return element("dict", "");
    }
    const std::string deeper = indentation + "\t";
    std::string items;
    if (const auto* array = value.array()) {
        for (const Value& item : *array) {
            items.append(deeper).append(elementOf(item, deeper));
        }
    } else {
        for (const auto& [key, item] : *value.dictionary()) {
            if (!item.isNull()) {
                items.append(deeper).append(element("key", escaped(key)));
                items.append(deeper).append(elementOf(item, deeper));
            }
        }
    }
    return element(value.array() != nullptr ? "array" : "dict",
                   items.empty() ? "" : "\n" + items + indentation);
}

}  // namespace

std::string serialisePropertyList(const Value& value) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           elementOf(value, "") + "</plist>\n";
}

}  // namespace teravolant::platform
