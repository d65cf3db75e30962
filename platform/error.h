#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace teravolant::platform {

inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";

/// The codes of `NSCocoaErrorDomain` that the platform's operations answer with.
enum CocoaErrorCode : std::int64_t {
    NSFileNoSuchFileError = 4,
    NSFileLockingError = 255,
    NSFileReadUnknownError = 256,
    NSFileReadNoPermissionError = 257,
    NSFileReadInvalidFileNameError = 258,
    NSFileReadCorruptFileError = 259,
    NSFileReadNoSuchFileError = 260,
    NSFileWriteUnknownError = 512,
    NSFileWriteNoPermissionError = 513,
    NSFileWriteInvalidFileNameError = 514,
    NSFileWriteFileExistsError = 516,
    NSFileWriteOutOfSpaceError = 640,
    NSFileWriteVolumeReadOnlyError = 642,
    NSPropertyListReadCorruptError = 3840,  ///< JSON counts as a property list here.
    NSPropertyListWriteInvalidError = 3852,
};

class JsonValue;
struct Error;

/// Keys of an error's user information. `NSLocalizedDescriptionKey` is not among them: that entry
/// is the error's own field.
inline constexpr const char* NSLocalizedRecoverySuggestionErrorKey =
    "NSLocalizedRecoverySuggestion";
inline constexpr const char* NSUnderlyingErrorKey = "NSUnderlyingError";

/// A text or raw bytes, a number, the error underneath, or a JSON value. Never null.
using UserInformation = std::variant<std::string, std::int64_t, std::shared_ptr<const Error>,
                                     std::shared_ptr<const JsonValue>>;

/// The platform's error value: whose code it is, the code, and one sentence that a person can act
/// on.
struct Error {
    std::string domain;
    std::int64_t code = 0;
    std::string localizedDescription;
    std::map<std::string, UserInformation, std::less<>> userInfo = {};

    /// The entry under the key when there is one and it is of that type, else null.
    template <typename Type>
    [[nodiscard]] const Type* userInformation(std::string_view key) const {
        const auto found = userInfo.find(key);
        return found == userInfo.end() ? nullptr : std::get_if<Type>(&found->second);
    }

    /// The error that led to this one, or null.
    [[nodiscard]] const Error* underlyingError() const;
};

/// Domain, code and description, then the same of the underlying error when there is one.
[[nodiscard]] std::string printedForm(const Error& error);

enum class FileAccess { Read, Write };

/// The error of a file operation that failed with the given `errno`, in `NSCocoaErrorDomain`.
///
/// `attempt` says what was not possible, as in "“/a/b” could not be opened"; the system's own
/// explanation of the number follows it.
[[nodiscard]] Error errorFromErrno(int errorNumber, FileAccess access, std::string_view attempt);

/// Either the value that an operation was asked for or the error that kept it from answering.
template <typename Value>
class [[nodiscard]] Result {
  public:
    Result(Value value) : _content(std::move(value)) {}
    Result(Error error) : _content(std::move(error)) {}

    explicit operator bool() const { return std::holds_alternative<Value>(_content); }

    /// Only for a result that is true.
    [[nodiscard]] const Value& value() const& { return std::get<Value>(_content); }
    [[nodiscard]] Value&& value() && { return std::get<Value>(std::move(_content)); }

    /// Only for a result that is false.
    [[nodiscard]] const Error& error() const& { return std::get<Error>(_content); }
    [[nodiscard]] Error&& error() && { return std::get<Error>(std::move(_content)); }

  private:
    std::variant<Value, Error> _content;
};

}  // namespace teravolant::platform
