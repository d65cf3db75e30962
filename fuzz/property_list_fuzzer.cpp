// The input is a property list, the format of the preference store.

#include "platform/values/property_list.h"

#include <algorithm>
#include <string>

#include "fuzz/require.h"
#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/values/printed_form.h"

namespace {

using namespace teravolant::platform;
using teravolant::fuzz::require;

/// The number of line breaks in the printed form: one per item and one per array or dictionary.
std::ptrdiff_t lineBreaksOf(const Value& value) {
    std::ptrdiff_t count = 0;
    if (const auto* array = value.array()) {
        count = static_cast<std::ptrdiff_t>(array->size()) + 1;
        for (const Value& item : *array) {
            count += lineBreaksOf(item);
        }
    }
    if (const auto* dictionary = value.dictionary()) {
        count = static_cast<std::ptrdiff_t>(dictionary->size()) + 1;
        for (const auto& [key, item] : *dictionary) {
            count += lineBreaksOf(item);
        }
    }
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto read = parsePropertyList({reinterpret_cast<const char*>(data), size});
    if (!read) {
        const bool isBinary = size >= 6 && std::string_view("bplist").starts_with(
                                               {reinterpret_cast<const char*>(data), 6});
        require(read.error().code ==
                    (isBinary ? NSPropertyListReadUnknownVersionError : NSFileReadCorruptFileError),
                "malformed data is reported as a corrupt file");
        return 0;
    }
    const Value& value = *read;
    const std::string written = serialisePropertyList(value);
    const auto again = parsePropertyList(written);
    require(static_cast<bool>(again), "a serialised value can be parsed");
    // A value that contains a NaN does not equal itself.
    require(*again == value || *read != value, "a serialised value parses to the same value");
    const std::string printed = printedForm(value);
    require(value.text() != nullptr
                ? printed == *value.text()
                : std::count(printed.begin(), printed.end(), '\n') == lineBreaksOf(value),
            "the printed form of a text is the text; others break lines only between items");
    return 0;
}
