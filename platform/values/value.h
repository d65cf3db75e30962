#pragma once

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace teravolant::platform {

/// One value of a JSON document or a property list, with everything it contains.
///
/// Null exists in JSON only, dates and data exist in property lists only.
class Value {
  public:
    struct Null {
        friend bool operator==(Null, Null) = default;
    };
    using Date = std::chrono::sys_seconds;
    using Data = std::vector<std::uint8_t>;
    using Array = std::vector<Value>;
    using Dictionary = std::map<std::string, Value, std::less<>>;

    Value() = default;  ///< Null.
    Value(std::string value) : _content(std::move(value)) {}
    Value(const char* value) : _content(std::string(value)) {}
    Value(std::nullptr_t) = delete;
    Value(std::same_as<bool> auto value) : _content(value) {}
    Value(std::signed_integral auto value) : _content(std::int64_t{value}) {}
    Value(double value) : _content(value) {}
    Value(Date value) : _content(value) {}
    Value(Data value) : _content(std::move(value)) {}
    Value(Array value) : _content(std::move(value)) {}
    Value(Dictionary value) : _content(std::move(value)) {}

    [[nodiscard]] bool isNull() const { return std::holds_alternative<Null>(_content); }

    /// Returns the content if it has that type, else null.
    [[nodiscard]] const std::string* text() const { return std::get_if<std::string>(&_content); }
    [[nodiscard]] const bool* boolean() const { return std::get_if<bool>(&_content); }
    [[nodiscard]] const std::int64_t* integer() const {
        return std::get_if<std::int64_t>(&_content);
    }
    [[nodiscard]] const double* real() const { return std::get_if<double>(&_content); }
    [[nodiscard]] const Date* date() const { return std::get_if<Date>(&_content); }
    [[nodiscard]] const Data* data() const { return std::get_if<Data>(&_content); }
    [[nodiscard]] const Array* array() const { return std::get_if<Array>(&_content); }
    [[nodiscard]] Array* array() { return std::get_if<Array>(&_content); }
    [[nodiscard]] const Dictionary* dictionary() const {
        return std::get_if<Dictionary>(&_content);
    }
    [[nodiscard]] Dictionary* dictionary() { return std::get_if<Dictionary>(&_content); }

    /// Returns the entry of a dictionary, or null if this is not a dictionary or has no such key.
    [[nodiscard]] const Value* find(std::string_view key) const {
        const Dictionary* const entries = dictionary();
        const auto found = entries ? entries->find(key) : Dictionary::const_iterator();
        return entries && found != entries->end() ? &found->second : nullptr;
    }

    friend bool operator==(const Value&, const Value&) = default;

  private:
    std::variant<Null, bool, std::int64_t, double, std::string, Date, Data, Array, Dictionary>
        _content;
};

}  // namespace teravolant::platform
