#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/error.h"

namespace teravolant::platform {

/// One property-list value with all that is in it.
class PropertyListValue {
  public:
    using Date = std::chrono::sys_seconds;
    using Data = std::vector<std::uint8_t>;
    using Array = std::vector<PropertyListValue>;
    using Dictionary = std::map<std::string, PropertyListValue, std::less<>>;

    PropertyListValue(std::string value) : _content(std::move(value)) {}
    PropertyListValue(const char* value) : _content(std::string(value)) {}
    PropertyListValue(bool value) : _content(value) {}
    PropertyListValue(std::int64_t value) : _content(value) {}
    PropertyListValue(double value) : _content(value) {}
    PropertyListValue(Date value) : _content(value) {}
    PropertyListValue(Data value) : _content(std::move(value)) {}
    PropertyListValue(Array value) : _content(std::move(value)) {}
    PropertyListValue(Dictionary value) : _content(std::move(value)) {}

    /// The content when it is of that type, else null.
    [[nodiscard]] const std::string* text() const { return std::get_if<std::string>(&_content); }
    [[nodiscard]] const bool* boolean() const { return std::get_if<bool>(&_content); }
    [[nodiscard]] const std::int64_t* integer() const {
        return std::get_if<std::int64_t>(&_content);
    }
    [[nodiscard]] const double* real() const { return std::get_if<double>(&_content); }
    [[nodiscard]] const Date* date() const { return std::get_if<Date>(&_content); }
    [[nodiscard]] const Data* data() const { return std::get_if<Data>(&_content); }
    [[nodiscard]] const Array* array() const { return std::get_if<Array>(&_content); }
    [[nodiscard]] const Dictionary* dictionary() const {
        return std::get_if<Dictionary>(&_content);
    }

    friend bool operator==(const PropertyListValue&, const PropertyListValue&) = default;

  private:
    std::variant<std::string, bool, std::int64_t, double, Date, Data, Array, Dictionary> _content;
};

/// Reads a property list in its XML or its binary form.
///
/// Fails with `NSFileReadCorruptFileError` for anything else, for a value that is not of one of the
/// types above, for a text that is not UTF-8, for nesting deeper than `kDeepestPropertyList`, and
/// for a binary one larger than 256 KiB. Integers beyond 64 bits with a sign, dates outside of 1933
/// to 2068, fractions of a second, and what stands behind a zero character in a text are not kept.
Result<PropertyListValue> parsePropertyList(std::string_view bytes);

inline constexpr int kDeepestPropertyList = 64;

/// The dictionary that the file holds at its top. Fails with `NSFileReadCorruptFileError` where
/// `parsePropertyList` does or the top is something else, and otherwise as `contentsOfFile`.
Result<PropertyListValue::Dictionary> dictionaryInFile(const std::filesystem::path& file);

/// The XML form, UTF-8.
[[nodiscard]] std::string serialisePropertyList(const PropertyListValue& value);

}  // namespace teravolant::platform
