#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/error.h"

namespace teravolant::platform {

/// One JSON value (RFC 8259) with all that is in it.
class JsonValue {
  public:
    struct Null {
        friend bool operator==(Null, Null) = default;
    };
    using Array = std::vector<JsonValue>;
    using Object = std::map<std::string, JsonValue, std::less<>>;

    JsonValue() = default;  ///< Null.
    JsonValue(std::string value) : _content(std::move(value)) {}
    JsonValue(const char* value) : _content(std::string(value)) {}
    JsonValue(std::nullptr_t) = delete;
    JsonValue(std::same_as<bool> auto value) : _content(value) {}
    JsonValue(std::signed_integral auto value) : _content(std::int64_t{value}) {}
    JsonValue(double value) : _content(value) {}
    JsonValue(Array value) : _content(std::move(value)) {}
    JsonValue(Object value) : _content(std::move(value)) {}

    [[nodiscard]] bool isNull() const { return std::holds_alternative<Null>(_content); }

    /// The content when it is of that type, else null. A number without fraction and exponent that
    /// fits is an integer, every other one a real.
    [[nodiscard]] const std::string* text() const { return std::get_if<std::string>(&_content); }
    [[nodiscard]] const bool* boolean() const { return std::get_if<bool>(&_content); }
    [[nodiscard]] const std::int64_t* integer() const {
        return std::get_if<std::int64_t>(&_content);
    }
    [[nodiscard]] const double* real() const { return std::get_if<double>(&_content); }
    [[nodiscard]] const Array* array() const { return std::get_if<Array>(&_content); }
    [[nodiscard]] const Object* object() const { return std::get_if<Object>(&_content); }
    [[nodiscard]] Array* array() { return std::get_if<Array>(&_content); }
    [[nodiscard]] Object* object() { return std::get_if<Object>(&_content); }

    friend bool operator==(const JsonValue&, const JsonValue&) = default;

  private:
    std::variant<Null, std::string, bool, std::int64_t, double, Array, Object> _content;
};

/// Where in the bytes a JSON error was found: the number of bytes read up to there.
inline constexpr const char* NSJSONSerializationErrorIndex = "NSJSONSerializationErrorIndex";

/// Reads a JSON text in UTF-8 whose top level is an object or an array. Of two members of the same
/// name the later one holds.
///
/// Fails with `NSPropertyListReadCorruptError` for anything else, and for nesting deeper than
/// `kDeepestJson`.
Result<JsonValue> parseJson(std::string_view bytes);

inline constexpr std::size_t kDeepestJson = 512;

/// The compact form, in UTF-8, members in the order of their names.
///
/// Fails with `NSPropertyListWriteInvalidError` for what the format has no form for: a text that is
/// not UTF-8, a number that is not finite, and nesting deeper than `kDeepestJson`.
Result<std::string> serialiseJson(const JsonValue& value);

}  // namespace teravolant::platform
