#include "platform/http/http_resumption.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "platform/core/text.h"

namespace teravolant::platform {

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

bool isHeaderText(std::string_view text) {
    return std::ranges::none_of(text, [](char character) {
        return (static_cast<unsigned char>(character) < ' ' && character != '\t') ||
               character == '\x7F';
    });
}

std::uint64_t offsetToResumeAt(const HttpRequest& request) {
    const auto& resumption = request.resumption;
    return resumption && !resumption->validator.empty() && isHeaderText(resumption->validator)
               ? resumption->offset
               : 0;
}

std::string resumptionValidator(const HttpResponse& response) {
    if (response.entityTag && response.entityTag->starts_with('"')) {
        return *response.entityTag;
    }
    return response.lastModified.value_or("");
}

}  // namespace teravolant::platform
