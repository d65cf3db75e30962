#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/core/http_message.h"

// The frames that the launcher and its confined programs exchange: one character for the kind, the
// size of the payload as eight hexadecimal digits, and the payload. A payload with fields consists
// of lines "name=value".
//
// All decoders accept any bytes: they return nothing for a malformed payload.
namespace teravolant::platform {

enum class FrameKind : char {
    Confinement = 'C',  ///< From the program, first: what the kernel enforces.
    Request = 'R',      ///< To `fetch`: fields.
    Head = 'H',         ///< From `fetch`: fields of the response, before its body.
    Bytes = 'B',        ///< A piece of a body.
    Failure = 'E',      ///< From the program, last: fields of an error.
    End = 'Z',          ///< From the program, last: success.
};

/// The payload of `Confinement` if the kernel enforces every part of it.
inline constexpr std::string_view kFullConfinement = "system-calls files";

inline constexpr std::size_t kFrameHeaderSize = 9;
inline constexpr std::size_t kLargestFrame = std::size_t{1} << 20U;  ///< Bytes of a payload.

[[nodiscard]] std::string frameHeader(FrameKind kind, std::size_t size);
[[nodiscard]] std::string frame(FrameKind kind, std::string_view payload);

/// Returns kind and payload size. Returns nothing for an unknown kind or a size over
/// `kLargestFrame`.
[[nodiscard]] std::optional<std::pair<FrameKind, std::size_t>> frameIn(std::string_view header);

/// Values must not contain a line feed.
using Fields = std::vector<std::pair<std::string, std::string>>;
[[nodiscard]] std::string encodedFields(const Fields& fields);
[[nodiscard]] std::optional<Fields> decodedFields(std::string_view payload);

/// The body of the request is not included.
[[nodiscard]] std::string encodedRequest(const HttpRequest& request, const HttpOptions& options);
[[nodiscard]] std::optional<std::pair<HttpRequest, HttpOptions>> decodedRequest(
    std::string_view payload);

[[nodiscard]] std::string encodedResponse(const HttpResponse& response);
[[nodiscard]] std::optional<HttpResponse> decodedResponse(std::string_view payload);

[[nodiscard]] std::string encodedError(const Error& error);
/// The description is escaped and truncated.
[[nodiscard]] std::optional<Error> decodedError(std::string_view payload);

}  // namespace teravolant::platform
