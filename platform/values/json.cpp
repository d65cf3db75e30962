#include "platform/values/json.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/core/error.h"
#include "platform/core/file_error.h"

// How it works: nlohmann's SAX parser reports a document as a sequence of events and does not
// recurse. `JsonBuilder` turns the events into a `Value` and keeps a stack of the open containers,
// so that deep nesting costs heap memory, not call stack, up to `kDeepestJson`. Writing recurses,
// after `hasJsonForm` has checked the depth.
namespace teravolant::platform {
namespace {

using nlohmann::json;

Status notJson(std::string_view reason, std::size_t position) {
    return Error{
        .domain = std::string(NSCocoaErrorDomain),
        .code = NSPropertyListReadCorruptError,
        .localizedDescription = "The data is not a JSON document: " + std::string(reason),
        .userInfo = {{NSJSONSerializationErrorIndex, static_cast<std::int64_t>(position)}}};
}

/// Builds the value from the parser's events. Each event returns whether to continue.
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
    bool start_object(std::size_t /*size*/) override { return open(Value::Dictionary()); }
    bool start_array(std::size_t /*size*/) override { return open(Value::Array()); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        _name = std::move(name);
        return true;
    }
    bool parse_error(std::size_t position, const std::string& /*token*/,
                     const json::exception& /*exception*/) override {
        // The library's message quotes the token, which can be as long as the document.
        _error = notJson("it is malformed at byte " + std::to_string(position) + ".", position);
        return false;
    }

    Result<Value> result() && {
        if (_error) {
            return *std::move(_error);
        }
        return std::move(_root);
    }

  private:
    /// Adds the value to the innermost open container and returns its address. The address of an
    /// open container stays valid: only the innermost one grows.
    Value* place(Value value) {
        if (_open.empty()) {
            _root = std::move(value);
            return &_root;
        }
        if (Value::Array* const array = _open.back()->array()) {
            return &array->emplace_back(std::move(value));
        }
        Value::Dictionary& object = *_open.back()->dictionary();
        return &object.insert_or_assign(std::move(_name), std::move(value)).first->second;
    }

    bool add(Value value) {
        if (_open.empty()) {
            _error = notJson("the top level is neither an object nor an array.", 0);
            return false;
        }
        place(std::move(value));
        return true;
    }

    bool open(Value container) {
        if (_open.size() == kDeepestJson) {
            _error = notJson("its nesting is too deep.", 0);
            return false;
        }
        _open.push_back(place(std::move(container)));
        return true;
    }

    bool close() {
        _open.pop_back();
        return true;
    }

    Value _root;
    std::vector<Value*> _open;
    std::string _name;
    Status _error;
};

/// Whether JSON can represent the value, apart from the encoding of its strings.
bool hasJsonForm(const Value& value, std::size_t deepest = kDeepestJson) {
    if (const auto* real = value.real()) {
        return std::isfinite(*real);
    }
    const auto* array = value.array();
    const auto* object = value.dictionary();
    if (array == nullptr && object == nullptr) {
        return value.date() == nullptr && value.data() == nullptr;
    }
    const auto holds = [deepest](const Value& inner) { return hasJsonForm(inner, deepest - 1); };
    return deepest > 0 &&
           (array != nullptr
                ? std::ranges::all_of(*array, holds)
                : std::ranges::all_of(*object, holds, &Value::Dictionary::value_type::second));
}

json jsonOf(const Value& value) {
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
        for (const Value& item : *array) {
            items.push_back(jsonOf(item));
        }
        return items;
    }
    if (const auto* object = value.dictionary()) {
        json members = json::object();
        for (const auto& [name, member] : *object) {
            members[name] = jsonOf(member);
        }
        return members;
    }
    return nullptr;
}

}  // namespace

Result<Value> parseJson(std::string_view bytes) {
    JsonBuilder builder;
    json::sax_parse(bytes, &builder);
    return std::move(builder).result();
}

Result<std::string> serialiseJson(const Value& value) {
    const auto notSerialisable = [](const char* reason) {
        return Error{
            .domain = std::string(NSCocoaErrorDomain),
            .code = NSPropertyListWriteInvalidError,
            .localizedDescription = std::string("The value can't be written as JSON: ") + reason};
    };
    if (!hasJsonForm(value)) {
        return notSerialisable(
            "it contains a date, data or a number that is not finite, or its nesting is too deep.");
    }
    try {
        return jsonOf(value).dump();
    } catch (const json::exception&) {
        return notSerialisable("a string in it is not UTF-8.");
    }
}

}  // namespace teravolant::platform
