// How it works: expat reports each tag and each piece of text of a document, and `Reader` checks
// that it may occur there. The reader keeps the open arrays and dictionaries in a vector
// instead of recursing, so that the input cannot exhaust the stack. Every other element ("leaf")
// collects its text until its end tag, which makes the value. The first fault stops the parser.

#include "platform/values/property_list.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <memory>
#include <new>
#include <optional>

#include <expat.h>

#include "platform/core/deleter.h"
#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/utc_time.h"
#include "platform/files/files.h"

namespace teravolant::platform {
namespace {

using Dictionary = Value::Dictionary;
using Parsed = std::optional<Value>;

constexpr std::string_view kWhiteSpace = " \t\r\n";

Status refused(CocoaErrorCode code, std::string_view reason) {
    return Error{.domain = std::string(NSCocoaErrorDomain),
                 .code = code,
                 .localizedDescription = std::string(reason)};
}

Status corrupt(std::string_view reason) { return refused(NSFileReadCorruptFileError, reason); }

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
    return text.substr(0, text.find_last_not_of(kWhiteSpace) + 1);
}

/// Returns the number that the whole text represents. `format` is a base or a `std::chars_format`.
template <typename Number, typename Format>
std::optional<Number> numberIn(std::string_view text, Format format) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number, format);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

Parsed integerIn(std::string_view text) {
    text = trimmed(text);
    const bool isNegative = text.starts_with('-');
    text.remove_prefix(isNegative || text.starts_with('+') ? 1 : 0);
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(isHexadecimal ? 2 : 0);
    const auto magnitude = numberIn<std::uint64_t>(text, isHexadecimal ? 16 : 10);
    constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
    if (!magnitude || *magnitude > kLargest + (isNegative ? 1 : 0)) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(isNegative ? 0 - *magnitude : *magnitude);
}

Parsed realIn(std::string_view text) {
    text = trimmed(text);
    text.remove_prefix(text.starts_with('+') && !text.starts_with("+-") ? 1 : 0);
    return numberIn<double>(text, std::chars_format::general);
}

Parsed dateIn(std::string_view text) {
    const auto time = utcTimeIn(trimmed(text));
    return time ? Parsed(*time) : std::nullopt;
}

/// Base64 (RFC 4648, section 4) with its padding; white space may stand anywhere.
Parsed dataIn(std::string_view text) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    Value::Data data;
    std::uint32_t bits = 0;
    std::size_t digits = 0;
    std::size_t paddings = 0;
    for (const char character : text) {
        const std::size_t digit = kDigits.find(character);
        if (character == '=') {
            ++paddings;
        } else if (digit != kDigits.npos && paddings == 0) {
            bits = bits << 6U | static_cast<std::uint32_t>(digit);
            // In a group of four digits, each digit after the first one completes a byte. Its
            // remaining bits belong to the next byte.
            const std::size_t position = digits++ % 4;
            if (position > 0) {
                data.push_back(static_cast<std::uint8_t>(bits >> (6 - 2 * position)));
            }
        } else if (kWhiteSpace.find(character) == kWhiteSpace.npos) {
            return std::nullopt;
        }
    }
    return paddings <= 2 && (digits + paddings) % 4 == 0 ? Parsed(std::move(data)) : std::nullopt;
}

template <bool value>
Parsed booleanIn(std::string_view text) {
    return trimmed(text).empty() ? Parsed(value) : std::nullopt;
}

Parsed textIn(std::string_view text) { return std::string(text); }

struct Leaf {
    std::string_view name;
    Parsed (*valueIn)(std::string_view text);
};
constexpr std::array<Leaf, 8> kLeaves = {{{"key", textIn},
                                          {"string", textIn},
                                          {"integer", integerIn},
                                          {"real", realIn},
                                          {"true", booleanIn<true>},
                                          {"false", booleanIn<false>},
                                          {"date", dateIn},
                                          {"data", dataIn}}};
constexpr const Leaf* kKey = kLeaves.data();

class Reader {
  public:
    Result<Value> read(std::string_view bytes) {
        XML_ParserStruct* const parser = _parser.get();
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, handle<&Reader::begin>, handle<&Reader::end>);
        XML_SetCharacterDataHandler(parser, handle<&Reader::addText>);
        XML_SetStartDoctypeDeclHandler(parser, handle<&Reader::beginDocumentType>);
        XML_SetSkippedEntityHandler(parser, handle<&Reader::skipEntity>);
        const bool isWhole =
            XML_Parse(parser, bytes.data(), static_cast<int>(bytes.size()), 1) == XML_STATUS_OK;
        if (!parser || XML_GetErrorCode(parser) == XML_ERROR_NO_MEMORY) {
            throw std::bad_alloc();
        }
        if (!isWhole && _fault.empty()) {
            refuse(XML_ErrorString(XML_GetErrorCode(parser)));
        } else if (isWhole && !_root) {
            refuse("there is no value");
        }
        return _fault.empty() ? Result<Value>(*std::move(_root)) : corrupt(_fault);
    }

  private:
    struct Container {
        bool isDictionary = false;
        Value::Array array = {};
        Dictionary dictionary = {};
        std::optional<std::string> key = {};  ///< Waits for its value.
    };

    /// Makes a handler of an operation. Expat may call handlers even after a fault. The handler is
    /// `noexcept` because an exception must not unwind the frames of a C library.
    template <auto operation, typename... Arguments>
    static void handle(void* reader, Arguments... arguments) noexcept {
        if (auto* const self = static_cast<Reader*>(reader); self->_fault.empty()) {
            (self->*operation)(arguments...);
        }
    }

    void begin(const char* name, const char** /*attributes*/) {
        const std::string_view tag = name;
        const bool isOutermost = std::exchange(_isAtBegin, false);
        const Leaf* const leaf = std::ranges::find(kLeaves, tag, &Leaf::name);
        const bool isContainer = tag == "array" || tag == "dict";
        if (tag == "plist" && isOutermost) {
            return;
        }
        if (leaf == kLeaves.end() && !isContainer) {
            refuse(tag == "plist" ? "<plist> is not the outermost element"
                                  : "an element is unknown");
        } else if (const char* const fault = faultOfPlace(leaf == kKey)) {
            refuse(fault);
        } else if (!isContainer) {
            _leaf = leaf;
            _text.clear();
        } else if (_open.size() == kDeepestPropertyList) {
            refuse("arrays and dictionaries nest too deep");
        } else {
            _open.push_back({.isDictionary = tag == "dict"});
        }
    }

    /// Returns why a key, or a value if `isKey` is false, must not begin here. Returns null if it
    /// may.
    [[nodiscard]] const char* faultOfPlace(bool isKey) const {
        const bool isInDictionary = !_open.empty() && _open.back().isDictionary;
        if (_leaf != nullptr) {
            return "an element stands inside of a key or a simple value";
        }
        if (isInDictionary && isKey == _open.back().key.has_value()) {
            return isKey ? "a key has no value" : "a value in a dictionary has no key";
        }
        if (isKey && !isInDictionary) {
            return "a key stands outside of a dictionary";
        }
        return _open.empty() && _root ? "there is more than one value" : nullptr;
    }

    void end(const char* /*name*/) {
        if (const Leaf* const leaf = std::exchange(_leaf, nullptr)) {
            auto value = leaf->valueIn(_text);
            if (leaf == kKey) {
                _open.back().key = _text;
            } else if (value) {
                place(*std::move(value));
            } else {
                refuse("the content of <" + std::string(leaf->name) +
                       "> is malformed or out of range");
            }
        } else if (!_open.empty()) {
            Container container = std::move(_open.back());
            _open.pop_back();
            if (container.key) {
                refuse("a key has no value");
            } else {
                place(container.isDictionary ? Value(std::move(container.dictionary))
                                             : std::move(container.array));
            }
        }
    }

    void place(Value value) {
        if (_open.empty()) {
            _root = std::move(value);
        } else if (Container& container = _open.back(); container.isDictionary) {
            container.dictionary.insert_or_assign(*container.key, std::move(value));
            container.key.reset();
        } else {
            container.array.push_back(std::move(value));
        }
    }

    void addText(const char* text, int length) {
        const std::string_view added(text, static_cast<std::size_t>(length));
        if (_leaf != nullptr) {
            _text += added;
        } else if (!trimmed(added).empty()) {
            refuse("a text stands outside of a value");
        }
    }

    /// An internal subset can define entities that expand to any size.
    void beginDocumentType(const char* /*name*/, const char* /*system*/, const char* /*public*/,
                           int hasInternalSubset) {
        if (hasInternalSubset != 0) {
            refuse("the document type has an internal subset");
        }
    }

    /// After a document type that is not loaded, expat skips unknown entities without an error.
    void skipEntity(const char* /*name*/, int /*isParameter*/) { refuse("an entity is unknown"); }

    void refuse(std::string_view fault) {
        _fault = "The property list is damaged in line " +
                 std::to_string(XML_GetCurrentLineNumber(_parser.get())) + ": " +
                 std::string(fault) + ".";
        XML_StopParser(_parser.get(), XML_FALSE);
    }

    std::unique_ptr<XML_ParserStruct, Deleter<XML_ParserFree>> _parser{XML_ParserCreate(nullptr)};
    bool _isAtBegin = true;
    std::vector<Container> _open;
    const Leaf* _leaf = nullptr;  ///< The open leaf, or null.
    std::string _text;            ///< The text of the open leaf so far.
    std::optional<Value> _root;
    std::string _fault;
};

}  // namespace

Result<Value> parsePropertyList(std::string_view bytes) {
    if (bytes.size() > kLargestPropertyList) {
        return corrupt("The property list is larger than 16 MiB.");
    }
    if (bytes.starts_with("bplist")) {
        return refused(
            NSPropertyListReadUnknownVersionError,
            "The file is a binary property list, which is not supported. Convert it with plistutil "
            "of the package libplist-utils: plistutil -i FILE -o FILE.xml -f xml");
    }
    return Reader().read(bytes);
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
    if (const Dictionary* const dictionary = parsed->dictionary()) {
        return *dictionary;
    }
    return corrupt("The property list is not a dictionary.");
}

}  // namespace teravolant::platform
