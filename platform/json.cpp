#include "platform/json.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

namespace teravolant::platform {
namespace {

using nlohmann::json;

Error notJson(std::string_view reason, std::size_t position) {
    return Error{
        .domain = std::string(NSCocoaErrorDomain),
        .code = NSPropertyListReadCorruptError,
        .localizedDescription = "The data is not a JSON document: " + std::string(reason),
        .userInfo = {{NSJSONSerializationErrorIndex, static_cast<std::int64_t>(position)}}};
}

/// Builds the value from the reader's events, which come without recursion; each answers whether to
/// read on.
class JsonBuilder : public json::json_sax_t {
  public:
    bool null() override { return add({}); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(number_integer_t value) override { return add(value); }
    bool number_unsigned(number_unsigned_t value) override {
        return std::in_range<std::int64_t>(value) ? add(static_cast<std::int64_t>(value))
                                                  : add(static_cast<double>(value));
    }
    bool number_float(number_float_t value, const string_t& /*digits*/) override {
        return add(value);
    }
    bool string(string_t& value) override { return add(std::move(value)); }
    bool binary(binary_t& /*value*/) override { return false; }
    bool start_object(std::size_t /*size*/) override { return open(JsonValue::Object()); }
    bool start_array(std::size_t /*size*/) override { return open(JsonValue::Array()); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        _name = std::move(name);
        return true;
    }
    bool parse_error(std::size_t position, const std::string& /*token*/,
                     const json::exception& /*exception*/) override {
        // The library's own message may quote a token as long as the document.
        _error = notJson("it is malformed at byte " + std::to_string(position) + ".", position);
        return false;
    }

    Result<JsonValue> result() && {
        if (_error) {
            return *std::move(_error);
        }
        return std::move(_root);
    }

  private:
    /// Puts the value where the reader stands and answers its place there. That place stays valid
    /// while the value is open: only the innermost open container grows.
    JsonValue* place(JsonValue value) {
        if (_open.empty()) {
            _root = std::move(value);
            return &_root;
        }
        if (JsonValue::Array* const array = _open.back()->array()) {
            return &array->emplace_back(std::move(value));
        }
        JsonValue::Object& object = *_open.back()->object();
        return &object.insert_or_assign(std::move(_name), std::move(value)).first->second;
    }

    bool add(JsonValue value) {
        if (_open.empty()) {
            _error = notJson("the top level is neither an object nor an array.", 0);
            return false;
        }
        place(std::move(value));
        return true;
    }

    bool open(JsonValue container) {
        if (_open.size() == kDeepestJson) {
            _error = notJson("it nests too deep.", 0);
            return false;
        }
        _open.push_back(place(std::move(container)));
        return true;
    }

    bool close() {
        _open.pop_back();
        return true;
    }

    JsonValue _root;
    std::vector<JsonValue*> _open;
    std::string _name;
    std::optional<Error> _error;
};

/// Whether all that is in the value has a form in JSON, but for its texts.
bool hasJsonForm(const JsonValue& value, std::size_t deepest = kDeepestJson) {
    if (const auto* real = value.real()) {
        return std::isfinite(*real);
    }
    const auto* array = value.array();
    const auto* object = value.object();
    if (array == nullptr && object == nullptr) {
        return true;
    }
    const auto holds = [deepest](const JsonValue& inner) {
        return hasJsonForm(inner, deepest - 1);
    };
    return deepest > 0 &&
           (array != nullptr
                ? std::ranges::all_of(*array, holds)
                : std::ranges::all_of(*object, holds, &JsonValue::Object::value_type::second));
}

json jsonOf(const JsonValue& value) {
    if (const auto* text = value.text()) {
        return *text;
    }
    if (const auto* boolean = value.boolean()) {
        return *boolean;
    }
    if (const auto* integer = value.integer()) {
        return *integer;
    }
    if (const auto* real = value.real()) {
        return *real;
    }
    if (const auto* array = value.array()) {
        json items = json::array();
        for (const JsonValue& item : *array) {
            items.push_back(jsonOf(item));
        }
        return items;
    }
    if (const auto* object = value.object()) {
        json members = json::object();
        for (const auto& [name, member] : *object) {
            members[name] = jsonOf(member);
        }
        return members;
    }
    return nullptr;
}

}  // namespace

Result<JsonValue> parseJson(std::string_view bytes) {
    JsonBuilder builder;
    json::sax_parse(bytes, &builder);
    return std::move(builder).result();
}

Result<std::string> serialiseJson(const JsonValue& value) {
    const auto notSerialisable = [](const char* reason) {
        return Error{
            .domain = std::string(NSCocoaErrorDomain),
            .code = NSPropertyListWriteInvalidError,
            .localizedDescription = std::string("The value can't be written as JSON: ") + reason};
    };
    if (!hasJsonForm(value)) {
        return notSerialisable("a number in it is not finite, or it nests too deep.");
    }
    try {
        return jsonOf(value).dump();
    } catch (const json::exception&) {
        return notSerialisable("a text in it is not UTF-8.");
    }
}

}  // namespace teravolant::platform
