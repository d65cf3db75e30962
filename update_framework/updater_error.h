#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "platform/core/error.h"

namespace teravolant::platform {

inline constexpr const char* SQRLUpdaterErrorDomain = "SQRLUpdaterErrorDomain";

enum SQRLUpdaterErrorCode : std::int64_t {
    SQRLUpdaterErrorMissingUpdateBundle = 1,
    SQRLUpdaterErrorInvalidServerBody = 2,
    SQRLUpdaterErrorInvalidJSON = 3,
    SQRLUpdaterErrorCheckNotPossible = 4,       ///< No cycle can run here and now.
    SQRLUpdaterErrorInvalidServerResponse = 5,  ///< An answer of another status than asked for.
    SQRLUpdaterErrorRefusedOffer = 6,           ///< Unsigned, or signed by nobody who is known.
    SQRLUpdaterErrorRefusedArchive = 7,         ///< Not the bytes that were offered.
    SQRLUpdaterErrorRefusedBundle = 8,          ///< Not what the offer said is in the archive.
    SQRLUpdaterErrorInstallationFailed = 9,
};

/// Keys of the user information: the raw body that a server sent (a text), and the JSON value in
/// it.
inline constexpr const char* SQRLUpdaterServerDataErrorKey = "SQRLUpdaterServerDataErrorKey";
inline constexpr const char* SQRLUpdaterJSONObjectErrorKey = "SQRLUpdaterJSONObjectErrorKey";

[[nodiscard]] inline Error updaterError(SQRLUpdaterErrorCode code, std::string description) {
    return Error{.domain = SQRLUpdaterErrorDomain,
                 .code = code,
                 .localizedDescription = std::move(description)};
}

}  // namespace teravolant::platform
