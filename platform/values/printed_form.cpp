#include "platform/values/printed_form.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>

#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

constexpr std::size_t kIndentation = 4;

bool isWordCharacter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '_';
}

std::string printedText(const std::string& text) {
    if (!text.empty() && std::all_of(text.begin(), text.end(), isWordCharacter)) {
        return text;
    }
    std::string escaped = "\"";
    for (const char character : text) {
        if (character == '\n') {
            escaped += "\\n";
            continue;
        }
        if (character == '"' || character == '\\') {
            escaped += '\\';
        }
        escaped += character;
    }
    return escaped + "\"";
}

std::string printedDate(Value::Date date) {
    const std::time_t seconds = date.time_since_epoch().count();
    std::tm universal{};
    gmtime_r(&seconds, &universal);
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "\"%Y-%m-%d %H:%M:%S +0000\"", &universal);
    return text.data();
}

std::string printedReal(double real) {
    std::array<char, 32> text{};
    return "\"" + std::string(text.data(), std::to_chars(text.begin(), text.end(), real).ptr) +
           "\"";
}

std::string printed(const Value& value, std::size_t indentation);

std::string printedArray(const Value::Array& array, std::size_t indentation) {
    const std::string inside(indentation + kIndentation, ' ');
    std::string text = "(";
    const char* separator = "\n";
    for (const Value& item : array) {
        text += separator + inside + printed(item, indentation + kIndentation);
        separator = ",\n";
    }
    return text + "\n" + std::string(indentation, ' ') + ")";
}

std::string printedDictionary(const Value::Dictionary& dictionary, std::size_t indentation) {
    const std::string inside(indentation + kIndentation, ' ');
    std::string text = "{\n";
    for (const auto& [key, value] : dictionary) {
        text +=
            inside + printedText(key) + " = " + printed(value, indentation + kIndentation) + ";\n";
    }
    return text + std::string(indentation, ' ') + "}";
}

std::string printed(const Value& value, std::size_t indentation) {
    if (const auto* text = value.text()) {
        return printedText(*text);
    }
    if (const auto* boolean = value.boolean()) {
        return *boolean ? "1" : "0";
    }
    if (const auto* integer = value.integer()) {
        return std::to_string(*integer);
    }
    if (const auto* real = value.real()) {
        return printedReal(*real);
    }
    if (const auto* date = value.date()) {
        return printedDate(*date);
    }
    if (const auto* data = value.data()) {
        return "<" + std::to_string(data->size()) + " bytes>";
    }
    if (const auto* array = value.array()) {
        return printedArray(*array, indentation);
    }
    if (const auto* dictionary = value.dictionary()) {
        return printedDictionary(*dictionary, indentation);
    }
    return kMissingValueMark;
}

}  // namespace

std::string printedForm(const Value& value) {
    if (const auto* text = value.text()) {
        return *text;
    }
    const std::string form = printed(value, 0);
    return form.starts_with('"') ? form.substr(1, form.size() - 2) : form;
}

}  // namespace teravolant::platform
