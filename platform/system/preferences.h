#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/core/result.h"
#include "platform/values/property_list.h"

namespace teravolant::platform {

/// One domain of the preferences: keys with property-list values in one file.
///
/// Nothing is cached: a read sees what any process wrote last. A write reads, changes and replaces
/// the file under a lock between processes and is durable when it returns. A file that can't be
/// parsed is moved to a new name beside it (as far as the user may), with a line on the console,
/// and the domain counts as empty. May be used from any thread.
class UserDefaults {
  public:
    /// The running application's own domain, named by its bundle identifier.
    static UserDefaults standardUserDefaults();

    /// The current user's domain of that name.
    static UserDefaults forDomain(std::string_view domain);

    /// The domain of that name for all users of this computer: written by the superuser, readable
    /// by everybody.
    static UserDefaults forAnyUser(std::string_view domain);

    /// The stored value; nothing when there is none or the file can't be read.
    [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const;

    /// On failure the old values stay.
    [[nodiscard]] Status setObject(Value value, std::string_view key) const;
    [[nodiscard]] Status removeObjectForKey(std::string_view key) const;

    /// Stores the value unless the key has one, and answers the one that is stored then: the same
    /// for all processes that come here at the same moment.
    Result<Value> setObjectIfAbsent(Value value, std::string_view key) const;

  private:
    UserDefaults(std::filesystem::path file, unsigned fileMode)
        : _file(std::move(file)), _fileMode(fileMode) {}

    [[nodiscard]] Status change(const std::function<void(Value::Dictionary& values)>& work) const;
    [[nodiscard]] Result<Value::Dictionary> readLocked() const;

    std::filesystem::path _file;
    unsigned _fileMode;
};

}  // namespace teravolant::platform
