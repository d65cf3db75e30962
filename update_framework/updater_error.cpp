#include "update_framework/updater_error.h"

#include <utility>

#include "platform/core/error.h"

namespace teravolant::platform {

bool isUpdaterError(const Error& error, SQRLUpdaterErrorCode code) {
    return error.domain == SQRLUpdaterErrorDomain && error.code == code;
}

Status updaterError(SQRLUpdaterErrorCode code, std::string description) {
    return Error{.domain = SQRLUpdaterErrorDomain,
                 .code = code,
                 .localizedDescription = std::move(description)};
}

}  // namespace teravolant::platform
