#include "platform/values/binary_property_list.h"

#include <cstdint>
#include <optional>

#include "platform/values/property_list.h"

namespace teravolant::platform {
namespace {

using Position = std::uint64_t;

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

/// About the memory that an item takes, its text or data apart.
constexpr std::uint64_t kItemCost = 64;
constexpr std::uint64_t kMostCost = std::uint64_t{16} << 20U;

enum Kind : std::uint8_t {
    Data = 0x4,
    AsciiText = 0x5,
    Utf16Text = 0x6,
    Array = 0xA,
    Set = 0xC,
    Dictionary = 0xD
};

struct Item {
    std::uint64_t kind = 0;
    std::uint64_t count = 0;  ///< Characters, bytes or members; no meaning for other kinds.
    Position content = 0;
};

/// Goes from the top over every reference, as the library will.
class Walk {
  public:
    explicit Walk(std::string_view bytes) : _bytes(bytes) {}

    bool reachesItsEnd() {
        if (_bytes.size() < kHeaderSize + kTrailerSize) {
            return false;
        }
        const Position trailer = _bytes.size() - kTrailerSize;
        _offsetSize = *numberAt(trailer + 6, 1);
        _referenceSize = *numberAt(trailer + 7, 1);
        _items = *numberAt(trailer + 8, 8);
        _offsets = *numberAt(trailer + 24, 8);
        return _items <= _bytes.size() && _offsets <= _bytes.size() &&
               passes(numberAt(trailer + 16, 8), 1);
    }

  private:
    /// Big-endian.
    [[nodiscard]] std::optional<std::uint64_t> numberAt(Position position,
                                                        std::uint64_t width) const {
        if (width == 0 || width > sizeof(std::uint64_t) || position > _bytes.size() ||
            width > _bytes.size() - position) {
            return std::nullopt;
        }
        std::uint64_t number = 0;
        for (const char byte : _bytes.substr(position, width)) {
            number = number << 8U | static_cast<std::uint8_t>(byte);
        }
        return number;
    }

    [[nodiscard]] std::optional<Item> itemAt(std::uint64_t reference) const {
        const auto offset = reference < _items
                                ? numberAt(_offsets + reference * _offsetSize, _offsetSize)
                                : std::nullopt;
        const auto marker = offset ? numberAt(*offset, 1) : std::nullopt;
        if (!marker) {
            return std::nullopt;
        }
        Item item{.kind = *marker >> 4U, .count = *marker & 0xFU, .content = *offset + 1};
        const bool isCounted = item.kind >= Data && item.kind != 0x8;
        if (!isCounted || item.count != 0xF) {
            return item;
        }
        // The count is a number of its own, with the power of its width in the marker.
        const std::uint64_t width = std::uint64_t{1}
                                    << (numberAt(item.content, 1).value_or(0xF) & 0xFU);
        const auto count = numberAt(item.content + 1, width);
        if (!count || *count > _bytes.size()) {
            return std::nullopt;
        }
        return Item{.kind = item.kind, .count = *count, .content = item.content + 1 + width};
    }

    bool spend(std::uint64_t payload) {
        _cost += kItemCost + payload;
        return _cost <= kMostCost;
    }

    bool passes(std::optional<std::uint64_t> reference, int depth) {
        const auto item = reference ? itemAt(*reference) : std::nullopt;
        if (!item || depth > kDeepestPropertyList) {
            return false;
        }
        switch (item->kind) {
            case Data:
            case AsciiText:
                return spend(item->count);
            case Utf16Text:
                return spend(2 * item->count);
            case Array:
            case Set:
                return spend(0) && membersPass(*item, 0, depth);
            case Dictionary:
                return spend(0) && keysPass(*item) && membersPass(*item, item->count, depth);
            default:
                return spend(0);
        }
    }

    /// The references from the one of that index on, as many as the item has members.
    bool membersPass(const Item& item, std::uint64_t first, int depth) {
        for (std::uint64_t index = first; index < first + item.count; ++index) {
            if (!passes(numberAt(item.content + index * _referenceSize, _referenceSize),
                        depth + 1)) {
                return false;
            }
        }
        return true;
    }

    bool keysPass(const Item& dictionary) {
        for (std::uint64_t index = 0; index < dictionary.count; ++index) {
            const auto reference =
                numberAt(dictionary.content + index * _referenceSize, _referenceSize);
            const auto key = reference ? itemAt(*reference) : std::nullopt;
            if (!key || !isKey(*key)) {
                return false;
            }
        }
        return true;
    }

    bool isKey(const Item& item) {
        const std::uint64_t width = item.kind == Utf16Text ? 2 : 1;
        if ((item.kind != AsciiText && item.kind != Utf16Text) || !spend(width * item.count)) {
            return false;
        }
        for (std::uint64_t index = 0; index < item.count; ++index) {
            if (numberAt(item.content + index * width, width).value_or(0) == 0) {
                return false;
            }
        }
        return true;
    }

    std::string_view _bytes;
    std::uint64_t _offsetSize = 0;
    std::uint64_t _referenceSize = 0;
    std::uint64_t _items = 0;
    Position _offsets = 0;
    std::uint64_t _cost = 0;
};

}  // namespace

bool isReadableBinaryPropertyList(std::string_view bytes) { return Walk(bytes).reachesItsEnd(); }

}  // namespace teravolant::platform
