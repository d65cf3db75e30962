#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/core/result.h"

namespace teravolant::platform {

inline constexpr std::string_view kHttpErrorDomain = "NSURLErrorDomain";

/// The codes of `kHttpErrorDomain`.
namespace HttpError {
enum Code : std::int64_t {
    unknown = -1,
    cancelled = -999,
    badUrl = -1000,
    timedOut = -1001,
    unsupportedUrl = -1002,
    cannotFindHost = -1003,
    cannotConnectToHost = -1004,
    connectionLost = -1005,
    tooManyRedirects = -1007,
    badResponse = -1011,
    unexpectedRange = -1017,  ///< A part of a body that was not requested.
    bodyTooLarge = -1103,
    secureConnectionFailed = -1200,
    certificateHasBadDate = -1201,
    certificateUntrusted = -1202,
    certificatesUnreadable = -1203,
    libraryMissing = -3001,  ///< libcurl can't be loaded.
};
}  // namespace HttpError

/// Returns an error of `kHttpErrorDomain`.
[[nodiscard]] Status httpError(HttpError::Code code, std::string description);

}  // namespace teravolant::platform
