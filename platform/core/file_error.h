#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/core/result.h"

namespace teravolant::platform {

inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";

/// The codes of `NSCocoaErrorDomain` that the platform's operations return.
enum CocoaErrorCode : std::int64_t {
    NSFileNoSuchFileError = 4,
    NSFileLockingError = 255,
    NSFileReadUnknownError = 256,
    NSFileReadNoPermissionError = 257,
    NSFileReadInvalidFileNameError = 258,
    NSFileReadCorruptFileError = 259,
    NSFileReadNoSuchFileError = 260,
    NSFileReadTooLargeError = 263,
    NSFileWriteUnknownError = 512,
    NSFileWriteNoPermissionError = 513,
    NSFileWriteInvalidFileNameError = 514,
    NSFileWriteFileExistsError = 516,
    NSFileWriteOutOfSpaceError = 640,
    NSFileWriteVolumeReadOnlyError = 642,
    NSUserCancelledError = 3072,
    NSExecutableNotLoadableError = 3584,
    NSExecutableArchitectureMismatchError = 3585,
    NSPropertyListReadCorruptError = 3840,         ///< Also for JSON.
    NSPropertyListReadUnknownVersionError = 3841,  ///< The binary form.
    NSPropertyListWriteInvalidError = 3852,
};

enum class FileAccess : std::uint8_t { Read, Write };

/// Returns the error in `NSCocoaErrorDomain` of a file operation that failed with `errorNumber`, an
/// `errno` value.
///
/// The description is `attempt`, as in "“/a/b” could not be opened", and the system's explanation
/// of the number.
Status errorFromErrno(int errorNumber, FileAccess access, std::string_view attempt);

/// The same for a file that could not be read or written.
Status readError(int errorNumber, const std::string& path);
Status writeError(int errorNumber, const std::string& path);

}  // namespace teravolant::platform
