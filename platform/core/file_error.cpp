#include "platform/core/file_error.h"

#include <cerrno>
#include <system_error>

#include "platform/core/error.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

CocoaErrorCode readCode(int errorNumber) {
    switch (errorNumber) {
        case ENOENT:
            return NSFileReadNoSuchFileError;
        case EACCES:
        case EPERM:
            return NSFileReadNoPermissionError;
        case ENAMETOOLONG:
            return NSFileReadInvalidFileNameError;
        default:
            return NSFileReadUnknownError;
    }
}

CocoaErrorCode writeCode(int errorNumber) {
    switch (errorNumber) {
        case ENOENT:
            return NSFileNoSuchFileError;
        case EACCES:
        case EPERM:
            return NSFileWriteNoPermissionError;
        case ENAMETOOLONG:
            return NSFileWriteInvalidFileNameError;
        case EEXIST:
            return NSFileWriteFileExistsError;
        case ENOSPC:
        case EDQUOT:
            return NSFileWriteOutOfSpaceError;
        case EROFS:
            return NSFileWriteVolumeReadOnlyError;
        default:
            return NSFileWriteUnknownError;
    }
}

}  // namespace

Status errorFromErrno(int errorNumber, FileAccess access, std::string_view attempt) {
    return Error{
        .domain = std::string(NSCocoaErrorDomain),
        .code = access == FileAccess::Read ? readCode(errorNumber) : writeCode(errorNumber),
        .localizedDescription =
            std::string(attempt) + ": " + std::generic_category().message(errorNumber) + "."};
}

Status readError(int errorNumber, const std::string& path) {
    return errorFromErrno(errorNumber, FileAccess::Read, quoted(path) + " could not be read");
}

Status writeError(int errorNumber, const std::string& path) {
    return errorFromErrno(errorNumber, FileAccess::Write, quoted(path) + " could not be written");
}

}  // namespace teravolant::platform
