#include "platform/system/preferences.h"

#include <system_error>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/durable_file.h"
#include "platform/files/file_lock.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/files/private_directory.h"
#include "platform/system/bundle.h"
#include "platform/system/console_log.h"

// How it works: each domain is one XML property list, and each write replaces it atomically, so a
// read needs no lock. A write locks FILE.lock, reads the current values, changes them, and replaces
// the file durably if they differ. The lock is a file of its own because the replacement gives the
// domain a new inode each time. A file that cannot be parsed is moved to FILE.damaged-N, with the
// first free N, and the domain starts again empty. Only a holder of the lock moves it: a reader
// that finds a damaged file takes the lock and reads again, because another process may have moved
// and rewritten the file since. A file that cannot be read for another reason stays in its place,
// and writes fail.
namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;
using Dictionary = Value::Dictionary;

constexpr std::string_view kVendorFolder = "Zelto";
constexpr std::string_view kMachineConfiguration = "/etc/xdg";
constexpr unsigned kOwnerOnly = 0600;
constexpr unsigned kReadableByAll = 0644;

fs::path fileOf(const fs::path& configuration, std::string_view domain) {
    return configuration / kVendorFolder / std::string(domain).append(".plist");
}

/// Returns the values in the file, and no values if the file is missing.
Result<Dictionary> readDictionary(const fs::path& file) {
    auto values = dictionaryInFile(file);
    return !values && values.error().code == NSFileReadNoSuchFileError
               ? Result<Dictionary>(Dictionary())
               : values;
}

bool isDamaged(const Result<Dictionary>& result) {
    return !result && result.error().code == NSFileReadCorruptFileError;
}

/// Moves a damaged file to the first free name, so that it never overwrites an earlier one.
Status setAside(const fs::path& file, const Error& reason) {
    fs::path aside;
    for (int number = 1; aside.empty() || fileExists(aside); ++number) {
        aside = file.string() + ".damaged-" + std::to_string(number);
    }
    if (auto error = moveItem(file, aside)) {
        return error;
    }
    logToConsole("The preferences in " + quoted(file.native()) +
                 " are damaged and were set aside as " + quoted(aside.filename().native()) + ": " +
                 reason.localizedDescription);
    return std::nullopt;
}

/// Creates the directory of a domain. Makes that of an all-users domain readable by all users, also
/// if an earlier version created it under a strict umask.
Status makeFolder(const fs::path& folder, unsigned fileMode) {
    if (fileMode != kReadableByAll) {
        return createDirectory(folder);
    }
    if (auto error = UserDefaults::checkAnyUserDirectory()) {
        return error;
    }
    if (auto error = createDirectory(folder)) {
        return error;
    }
    using fs::perms;
    std::error_code refused;
    fs::permissions(folder,
                    perms::group_read | perms::group_exec | perms::others_read | perms::others_exec,
                    fs::perm_options::add, refused);
    return std::nullopt;
}

Result<FileLock> lockBeside(const fs::path& file) {
    return FileLock::acquire(file.string() + ".lock");
}

}  // namespace

UserDefaults UserDefaults::standardUserDefaults() {
    const Bundle& bundle = Bundle::mainBundle();
    return forDomain(
        bundle.bundleIdentifier().value_or(bundle.executablePath().filename().string()));
}

UserDefaults UserDefaults::forDomain(std::string_view domain) {
    return {fileOf(configurationDirectory(), domain), kOwnerOnly};
}

UserDefaults UserDefaults::forAnyUser(std::string_view domain) {
    return {fileOf(kMachineConfiguration, domain), kReadableByAll};
}

Status UserDefaults::checkAnyUserDirectory() {
    return checkPrivateDirectories(kMachineConfiguration, kVendorFolder);
}

std::optional<Value> UserDefaults::objectForKey(std::string_view key) const {
    auto values = readDictionary(_file);
    if (isDamaged(values)) {
        if (const auto lock = lockBeside(_file)) {
            values = readLocked();
        }
    }
    if (!values) {
        logToConsole("The preferences in " + quoted(_file.native()) +
                     " are not used: " + values.error().localizedDescription);
        return std::nullopt;
    }
    const auto found = values->find(key);
    return found == values->end() ? std::nullopt : std::optional(found->second);
}

Status UserDefaults::setObject(Value value, std::string_view key) const {
    return change(
        [&](Dictionary& values) { values.insert_or_assign(std::string(key), std::move(value)); });
}

Status UserDefaults::removeObjectForKey(std::string_view key) const {
    return change([&](Dictionary& values) { values.erase(std::string(key)); });
}

Result<Value> UserDefaults::updateObject(std::string_view key,
                                         const std::function<Value(const Value&)>& update) const {
    Value updated;
    if (auto error = change([&](Dictionary& values) {
            Value& value = values[std::string(key)];
            updated = update(value);
            value = updated;
        })) {
        return error;
    }
    return updated;
}

Status UserDefaults::change(const std::function<void(Dictionary&)>& work) const {
    if (auto error = makeFolder(_file.parent_path(), _fileMode)) {
        return error;
    }
    const auto lock = lockBeside(_file);
    if (!lock) {
        return lock.error();
    }
    auto read = readLocked();
    if (!read) {
        return read.error();
    }
    const Dictionary before = *std::move(read);
    Dictionary after = before;
    work(after);
    if (after == before) {
        return std::nullopt;
    }
    return replaceFileDurably(_file, serialisePropertyList(after), _fileMode);
}

/// Reads the values and moves a damaged file away. The caller holds the lock.
Result<Dictionary> UserDefaults::readLocked() const {
    auto values = readDictionary(_file);
    if (!isDamaged(values)) {
        return values;
    }
    if (auto error = setAside(_file, values.error())) {
        return error;
    }
    return Dictionary();
}

}  // namespace teravolant::platform
