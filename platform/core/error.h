#pragma once

#include <any>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

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
    NSPropertyListReadCorruptError = 3840,  ///< Also for JSON.
    NSPropertyListWriteInvalidError = 3852,
};

/// Keys of an error's user information. The entry `NSLocalizedDescriptionKey` is the error's own
/// field.
inline constexpr const char* NSLocalizedRecoverySuggestionErrorKey =
    "NSLocalizedRecoverySuggestion";
inline constexpr const char* NSUnderlyingErrorKey = "NSUnderlyingError";

/// The platform's error value: a code within a domain, and one sentence that the user can act on.
struct Error {
    /// One entry of the user information: text or raw bytes (`std::string`), a number
    /// (`std::int64_t`), the underlying `Error`, or a `Value`.
    struct UserInformation {
        std::string key;
        std::any value;
    };

    std::string domain;
    std::int64_t code = 0;
    std::string localizedDescription;
    std::vector<UserInformation> userInfo = {};

    /// Returns the entry under `key`, or null if it is missing or has another type.
    template <typename Type>
    [[nodiscard]] const Type* userInformation(std::string_view key) const {
        for (const UserInformation& entry : userInfo) {
            if (entry.key == key) {
                return std::any_cast<Type>(&entry.value);
            }
        }
        return nullptr;
    }

    /// Returns the error that caused this one, or null.
    [[nodiscard]] const Error* underlyingError() const {
        return userInformation<Error>(NSUnderlyingErrorKey);
    }
};

/// Returns domain, code and description, then those of the underlying error if there is one.
[[nodiscard]] std::string printedForm(const Error& error);

enum class FileAccess { Read, Write };

/// Returns the error in `NSCocoaErrorDomain` of a file operation that failed with `errorNumber`, an
/// `errno` value.
///
/// The description is `attempt`, as in "“/a/b” could not be opened", and the system's explanation
/// of the number.
[[nodiscard]] Error errorFromErrno(int errorNumber, FileAccess access, std::string_view attempt);

/// The same for a file that could not be read or written.
[[nodiscard]] Error readError(int errorNumber, const std::string& path);
[[nodiscard]] Error writeError(int errorNumber, const std::string& path);

}  // namespace teravolant::platform
