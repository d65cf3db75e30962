#include "platform/http/http_headers.h"

#include <algorithm>
#include <charconv>

#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
    return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

}  // namespace

bool ReceivedHeaders::add(std::string_view line) {
    _bytes += line.size();
    if (line.starts_with("HTTP/")) {
        _values.clear();
    }
    const std::size_t mark = line.find(':');
    if (mark != line.npos) {
        _values[lowerCase(line.substr(0, mark))] = trimmed(line.substr(mark + 1));
    }
    return _bytes <= kMostBytes;
}

std::optional<std::string> ReceivedHeaders::find(const std::string& name) const {
    const auto found = _values.find(name);
    return found == _values.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::uint64_t> startOfRange(std::string_view contentRange) {
    constexpr std::string_view kUnit = "bytes ";
    if (!equalIgnoringCase(contentRange.substr(0, kUnit.size()), kUnit)) {
        return std::nullopt;
    }
    contentRange.remove_prefix(kUnit.size());
    std::uint64_t first = 0;
    const char* end = contentRange.data() + contentRange.size();
    const auto parsed = std::from_chars(contentRange.data(), end, first);
    if (parsed.ec != std::errc() || parsed.ptr == end || *parsed.ptr != '-') {
        return std::nullopt;
    }
    return first;
}

std::optional<std::uint64_t> completeLengthIn(std::string_view contentRange) {
    const std::size_t slash = contentRange.find('/');
    if (slash == contentRange.npos) {
        return std::nullopt;
    }
    contentRange.remove_prefix(slash + 1);
    std::uint64_t length = 0;
    const char* const end = contentRange.data() + contentRange.size();
    const auto parsed = std::from_chars(contentRange.data(), end, length);
    return parsed.ec == std::errc() && parsed.ptr == end ? std::optional(length) : std::nullopt;
}

}  // namespace teravolant::platform
