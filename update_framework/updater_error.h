#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "platform/core/result.h"

namespace teravolant::platform {

inline constexpr const char* SQRLUpdaterErrorDomain = "SQRLUpdaterErrorDomain";

enum SQRLUpdaterErrorCode : std::int64_t {
    SQRLUpdaterErrorMissingUpdateBundle = 1,
    SQRLUpdaterErrorInvalidServerBody = 2,
    SQRLUpdaterErrorInvalidJSON = 3,
    SQRLUpdaterErrorCheckNotPossible = 4,       ///< The cycle could not run.
    SQRLUpdaterErrorInvalidServerResponse = 5,  ///< A status that is not expected.
    SQRLUpdaterErrorRefusedOffer = 6,           ///< Not to be trusted, or not now.
    SQRLUpdaterErrorRefusedArchive = 7,         ///< Its size or digest is not the offered one.
    SQRLUpdaterErrorRefusedBundle = 8,  ///< Not the offered version or tree, or it can't run.
    SQRLUpdaterErrorInstallationFailed = 9,
};

/// Keys of the user information: the body of the response (`std::string`) and the JSON value that
/// was parsed from it (`Value`).
inline constexpr const char* SQRLUpdaterServerDataErrorKey = "SQRLUpdaterServerDataErrorKey";
inline constexpr const char* SQRLUpdaterJSONObjectErrorKey = "SQRLUpdaterJSONObjectErrorKey";

[[nodiscard]] bool isUpdaterError(const Error& error, SQRLUpdaterErrorCode code);

/// Returns an error of `SQRLUpdaterErrorDomain`.
[[nodiscard]] Status updaterError(SQRLUpdaterErrorCode code, std::string description);

}  // namespace teravolant::platform
