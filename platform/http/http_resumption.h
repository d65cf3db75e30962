#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/http/http.h"

namespace teravolant::platform {

/// Whether the text can be part of a header line: it contains no control character except tabs.
[[nodiscard]] bool isHeaderText(std::string_view text);

/// Returns the offset of the range to request, or 0 for the whole body: also if the validator is
/// missing, or damaged in the file that it was stored in.
[[nodiscard]] std::uint64_t offsetToResumeAt(const HttpRequest& request);

/// Returns FIRST of "bytes FIRST-LAST/LENGTH" (RFC 9110, section 14.4), or nothing if the header is
/// malformed or has another unit.
[[nodiscard]] std::optional<std::uint64_t> startOfRange(std::string_view contentRange);

}  // namespace teravolant::platform
