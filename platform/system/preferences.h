#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>

#include "platform/core/result.h"
#include "platform/values/property_list.h"

namespace teravolant::platform {

/// One domain of the preferences: keys with property-list values in one file.
///
/// Nothing is cached: a read returns the values that any process wrote last. A write reads, changes
/// and replaces the file under a lock between processes, and is durable when it returns. A file
/// that cannot be parsed is moved to a new name beside it, with a line on the console, and the
/// domain counts as empty. May be used from any thread.
class UserDefaults {
  public:
    /// Returns the running application's own domain, whose name is the bundle identifier.
    static UserDefaults standardUserDefaults();

    /// Returns the current user's domain of that name.
    static UserDefaults forDomain(std::string_view domain);

    /// Returns the domain of that name for all users of the computer, which only the superuser can
    /// write.
    static UserDefaults forAnyUser(std::string_view domain);

    /// Fails if the directory of the domains for all users exists and a user other than the
    /// superuser can change it. Writes to these domains then fail as well.
    [[nodiscard]] static Status checkAnyUserDirectory();

    /// Returns the stored value, or nothing if there is none or the file cannot be read. Logs the
    /// reason why a file cannot be read to the console.
    [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const;

    /// Stores the value. The old values remain on failure.
    [[nodiscard]] Status setObject(Value value, std::string_view key) const;
    [[nodiscard]] Status removeObjectForKey(std::string_view key) const;

    /// Passes the stored value, or null, to `update`, stores the value that it returns, and returns
    /// that value. No other process can change the domain in between.
    Result<Value> updateObject(std::string_view key,
                               const std::function<Value(const Value& stored)>& update) const;

  private:
    UserDefaults(std::filesystem::path file, unsigned fileMode)
        : _file(std::move(file)), _fileMode(fileMode) {}

    [[nodiscard]] Status change(const std::function<void(Value::Dictionary& values)>& work) const;
    [[nodiscard]] Result<Value::Dictionary> readLocked() const;

    std::filesystem::path _file;
    unsigned _fileMode;
};

}  // namespace teravolant::platform
