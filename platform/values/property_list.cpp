#include "platform/values/property_list.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>

#include <plist/plist.h>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"
#include "platform/values/binary_property_list.h"

namespace teravolant::platform {
namespace {

using Dictionary = Value::Dictionary;
using Array = Value::Array;

/// Property-list dates count from 2001-01-01 00:00 UTC.
constexpr Value::Date kReferenceDate{std::chrono::seconds(978307200)};

struct FreeNode {
    void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, FreeNode>;

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
template <typename Item>
using Memory = std::unique_ptr<Item, FreeMemory>;

std::optional<Value> valueOf(plist_t node, int depth);

/// In whole seconds: the XML form has no others.
Value::Date dateOf(plist_t node) {
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    return kReferenceDate + std::chrono::seconds(seconds);
}

/// Up to a zero character, for which the XML form has no place.
std::string textOf(plist_t node) {
    const char* text = plist_get_string_ptr(node, nullptr);
    return text == nullptr ? std::string() : std::string(text);
}

Value::Data dataOf(plist_t node) {
    std::uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node, &length);
    return bytes == nullptr ? Value::Data() : Value::Data(bytes, bytes + length);
}

std::optional<Value> arrayOf(plist_t node, int depth) {
    Array array;
    plist_array_iter iterator = nullptr;
    plist_array_new_iter(node, &iterator);
    const Memory<void> owner(iterator);
    for (std::uint32_t left = plist_array_get_size(node); left > 0; --left) {
        plist_t item = nullptr;
        plist_array_next_item(node, iterator, &item);
        auto value = valueOf(item, depth + 1);
        if (!value) {
            return std::nullopt;
        }
        array.push_back(*std::move(value));
    }
    return array;
}

std::optional<Value> dictionaryOf(plist_t node, int depth) {
    Dictionary dictionary;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    const Memory<void> owner(iterator);
    while (true) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator, &key, &item);
        const Memory<char> keyOwner(key);
        if (item == nullptr) {
            return dictionary;
        }
        auto value = valueOf(item, depth + 1);
        if (!value || key == nullptr || !isValidUtf8(key)) {
            return std::nullopt;
        }
        dictionary.insert_or_assign(key, *std::move(value));
    }
}

std::optional<Value> valueOf(plist_t node, int depth) {
    if (depth > kDeepestPropertyList) {
        return std::nullopt;
    }
    switch (plist_get_node_type(node)) {
        case PLIST_STRING: {
            std::string text = textOf(node);
            return isValidUtf8(text) ? std::optional<Value>(std::move(text)) : std::nullopt;
        }
        case PLIST_BOOLEAN: {
            std::uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return Value(value != 0);
        }
        case PLIST_UINT: {
            std::uint64_t value = 0;
            plist_get_uint_val(node, &value);
            return static_cast<std::int64_t>(value);
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return value;
        }
        case PLIST_DATE:
            return dateOf(node);
        case PLIST_DATA:
            return dataOf(node);
        case PLIST_ARRAY:
            return arrayOf(node, depth);
        case PLIST_DICT:
            return dictionaryOf(node, depth);
        default:
            return std::nullopt;
    }
}

Node nodeOf(const Value& value);

Node nodeOfDate(Value::Date date) {
    return Node(plist_new_date(static_cast<std::int32_t>((date - kReferenceDate).count()), 0));
}

Node nodeOfArray(const Array& array) {
    Node node(plist_new_array());
    for (const Value& item : array) {
        plist_array_append_item(node.get(), nodeOf(item).release());
    }
    return node;
}

Node nodeOfDictionary(const Dictionary& dictionary) {
    Node node(plist_new_dict());
    for (const auto& [key, item] : dictionary) {
        plist_dict_set_item(node.get(), key.c_str(), nodeOf(item).release());
    }
    return node;
}

Node nodeOf(const Value& value) {
    if (const auto* text = value.text()) {
        return Node(plist_new_string(text->c_str()));
    }
    if (const auto* boolean = value.boolean()) {
        return Node(plist_new_bool(*boolean ? 1 : 0));
    }
    if (const auto* integer = value.integer()) {
        return Node(plist_new_uint(static_cast<std::uint64_t>(*integer)));
    }
    if (const auto* real = value.real()) {
        return Node(plist_new_real(*real));
    }
    if (const auto* date = value.date()) {
        return nodeOfDate(*date);
    }
    if (const auto* data = value.data()) {
        return Node(plist_new_data(reinterpret_cast<const char*>(data->data()), data->size()));
    }
    if (const auto* array = value.array()) {
        return nodeOfArray(*array);
    }
    return nodeOfDictionary(*value.dictionary());
}

/// The length of the comment, the raw text or the instruction that begins the text; 0 for a tag.
std::size_t lengthOfNoTag(std::string_view text) {
    for (const auto& [begin, end] : {std::pair<std::string_view, std::string_view>("<!--", "-->"),
                                     {"<![CDATA[", "]]>"},
                                     {"<?", "?>"}}) {
        if (text.starts_with(begin)) {
            return std::min(text.find(end, begin.size()), text.size() - end.size()) + end.size();
        }
    }
    return 0;
}

/// Whether the library would find another end of the tag: behind a quote, or behind definitions of
/// a document type's own. Anything can stand in there.
bool hidesSomething(std::string_view tag) {
    return std::ranges::count(tag, '"') % 2 != 0 ||
           (tag.starts_with("<!") && tag.find('[') != tag.npos);
}

/// The library reads what is nested by calling itself, so that nothing may reach it that nests
/// without end.
bool nestsTooDeep(std::string_view bytes) {
    int depth = 0;
    while (depth <= kDeepestPropertyList) {
        bytes.remove_prefix(std::min(bytes.find('<'), bytes.size()));
        if (const std::size_t length = lengthOfNoTag(bytes)) {
            bytes.remove_prefix(length);
            continue;
        }
        const std::string_view tag = bytes.substr(0, bytes.find('>'));
        if (tag.size() == bytes.size()) {
            return false;
        }
        if (hidesSomething(tag)) {
            return true;
        }
        if (tag.starts_with("</array") || tag.starts_with("</dict")) {
            --depth;
        } else if ((tag.starts_with("<array") || tag.starts_with("<dict")) && !tag.ends_with('/')) {
            ++depth;
        }
        bytes.remove_prefix(tag.size());
    }
    return true;
}

Error corrupt(std::string_view reason) {
    return Error{.domain = std::string(NSCocoaErrorDomain),
                 .code = NSFileReadCorruptFileError,
                 .localizedDescription = std::string(reason)};
}

}  // namespace

Result<Value> parsePropertyList(std::string_view bytes) {
    constexpr std::size_t kLargestBinary = std::size_t{256} << 10U;
    const bool isBinary = bytes.starts_with("bplist");
    if (bytes.size() > (isBinary ? kLargestBinary : std::numeric_limits<std::uint32_t>::max())) {
        return corrupt("The property list is too large.");
    }
    if (isBinary ? !isReadableBinaryPropertyList(bytes) : nestsTooDeep(bytes)) {
        return corrupt("The property list is damaged, or nests too deep.");
    }
    plist_t parsed = nullptr;
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &parsed);
    const Node root(parsed);
    if (!root) {
        return corrupt("The data is not a property list.");
    }
    auto value = valueOf(root.get(), 1);
    if (!value) {
        return corrupt("The property list holds a value of an unknown kind, or nests too deep.");
    }
    return *std::move(value);
}

Result<Dictionary> dictionaryInFile(const std::filesystem::path& file) {
    const auto contents = contentsOfFile(file);
    if (!contents) {
        return contents.error();
    }
    const auto parsed = parsePropertyList(*contents);
    if (!parsed) {
        return parsed.error();
    }
    const Dictionary* const dictionary = parsed->dictionary();
    return dictionary == nullptr
               ? Result<Dictionary>(corrupt("The property list is not a dictionary."))
               : *dictionary;
}

std::string serialisePropertyList(const Value& value) {
    const Node root = nodeOf(value);
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(root.get(), &bytes, &length);
    const std::unique_ptr<char, decltype(&plist_to_xml_free)> owner(bytes, &plist_to_xml_free);
    return {bytes, length};
}

}  // namespace teravolant::platform
