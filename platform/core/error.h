#pragma once

#include <any>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace teravolant::platform {

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

}  // namespace teravolant::platform
