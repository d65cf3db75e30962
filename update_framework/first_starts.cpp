// The record is a register of processes (platform/files/process_register.h) in the staging folder,
// whose note is a property list. A start registers itself; a termination signal deregisters it. So
// a process that is gone and still registered is a failed start. The lock of the register orders
// counting, confirmation and rollback: one process confirms or rolls back, and the others find a
// void register and read again which version is installed.
//
// A rollback remembers the archive first, then exchanges the bundles, then makes the record void.
// After a kill before the exchange, the next start repeats the rollback. After a kill behind it,
// the record names another version than the installed one and has no effect.
#include "update_framework/first_starts.h"

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/crypto/encodings.h"
#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/files/private_directory.h"
#include "platform/files/process_register.h"
#include "platform/system/application.h"
#include "platform/system/bundle.h"
#include "platform/system/executable_path.h"
#include "platform/system/process.h"
#include "platform/values/property_list.h"
#include "update_framework/bundle_exchange.h"
#include "update_framework/record.h"
#include "update_framework/refusals.h"
#include "update_framework/staging.h"
#include "update_framework/updater_error.h"
#include "update_framework/updater_log.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostFailedStarts = 3;

/// This process's start of an unconfirmed version.
struct CountedStart {
    ProcessRegister processes;
    fs::path target;
};
std::optional<CountedStart> theStart;

Result<std::optional<ProcessRegister>> openRegister(const fs::path& target) {
    return ProcessRegister::open(unconfirmedRecordPath(target));
}

/// Returns nothing if the note can't be the record of a version at `target`.
std::optional<UnconfirmedVersion> versionIn(const ProcessRegister& processes,
                                            const fs::path& target) {
    Record record = recordIn(processes.note());
    UnconfirmedVersion version{.version = record["version"],
                               .digest = record["digest"],
                               .previousVersion = record["previousVersion"],
                               .previous = base64Decoded(record["previous"]).value_or("")};
    const fs::path staging = stagingFolderFor(target);
    const bool isPlausible = version.previous == version.previous.lexically_normal() &&
                             version.previous.has_filename() &&
                             isInside(version.previous.parent_path(), staging) &&
                             isPrivateDirectory(staging);
    return isPlausible ? std::optional(std::move(version)) : std::nullopt;
}

std::optional<std::string> versionAt(const fs::path& bundlePath) {
    const auto bundle = Bundle::bundleWithPath(bundlePath);
    return bundle ? bundle->shortVersion() : std::nullopt;
}

/// Returns the item of the staging folder that contains the previous bundle.
fs::path previousItem(const fs::path& staging, const fs::path& previous) {
    return staging / *previous.lexically_relative(staging).begin();
}

/// Removes the previous bundle, and the staging folder if nothing else is in it. What a failure or
/// a kill leaves is removed by the next cycle.
void removePrevious(const fs::path& target, const fs::path& previous) {
    const fs::path staging = stagingFolderFor(target);
    (void)removeTree(previousItem(staging, previous));
    std::error_code notEmpty;
    fs::remove(staging, notEmpty);
}

/// The same in a process of its own: no start waits for the removal of a large bundle.
void removePreviousInBackground(const fs::path& target, const fs::path& previous) {
    const fs::path staging = stagingFolderFor(target);
    (void)launchDetached("sh", {"-c", R"(chmod -R u+rwX "$1"; rm -rf "$1"; rmdir "$2")", "sh",
                                previousItem(staging, previous), staging});
}

using Remove = void (*)(const fs::path& target, const fs::path& previous);

void confirm(ProcessRegister& processes, const fs::path& target, Remove remove) {
    auto error = processes.lock();
    const auto version = versionIn(processes, target);
    if (!error && (!version || !processes.isValid())) {
        return;
    }
    if (!error) {
        repairInstallation(target, version->previous);
        error = processes.makeVoid(ProcessRegister::File::Remove);
    }
    if (error) {
        logUpdater("the version is not confirmed: " + error->localizedDescription);
        return;
    }
    logUpdater("confirmed version " + escaped(version->version));
    // Before the exchange is flushed, a power failure may undo it.
    if (flushFolderOf(target) == 0) {
        remove(target, version->previous);
    }
}

/// Returns an error if the previous bundle can't run.
Status checkPrevious(const UnconfirmedVersion& version) {
    const auto bundle = Bundle::bundleWithPath(version.previous);
    return bundle && bundle->canRun()
               ? Status()
               : updaterError(SQRLUpdaterErrorInstallationFailed,
                              "The previous bundle at " + quoted(version.previous.string()) +
                                  " is missing or incomplete.");
}

void rememberAsBad(const UnconfirmedVersion& version) {
    const auto cache = cacheFolderOf(Bundle::mainBundle());
    auto error = prepareCacheFolder(cache);
    if (!error) {
        error = Refusals(cache).add(version.digest, Refusal::FailedStarts,
                                    "three starts of version " + version.version + " failed",
                                    currentUtcTime());
    }
    if (error) {
        logUpdater("the version is not remembered as bad: " + error->localizedDescription);
    }
}

/// Exchanges the bundles. `processes` is locked and valid.
Status exchangeBack(ProcessRegister& processes, const UnconfirmedVersion& version,
                    const fs::path& target) {
    repairInstallation(target, version.previous);
    auto error = checkPrevious(version);
    error = error ? std::move(error) : exchangeBundles(version.previous, target);
    if (!error) {
        // The file stays, so that a start which has not opened it yet follows the exchange.
        (void)processes.makeVoid(ProcessRegister::File::Keep);
    }
    return error;
}

/// Puts the previous bundle back after failed starts. Returns false, and logs why, if that is not
/// possible.
bool rollBack(ProcessRegister& processes, const UnconfirmedVersion& version,
              const fs::path& target) {
    rememberAsBad(version);
    const auto error = exchangeBack(processes, version, target);
    const std::string what = "three starts of version " + escaped(version.version) + " failed";
    logUpdater(error ? what + ", but the previous version can't be put back: " +
                           error->localizedDescription
                     : what + ": went back to version " + escaped(version.previousVersion));
    return !error;
}

/// Returns the installed bundle if `bundle` is in its staging folder, else an empty path. Another
/// start may have exchanged the two after this process was started, or a kill interrupted the
/// exchange.
fs::path installedInPlaceOf(const fs::path& bundle) {
    for (fs::path folder = bundle; folder.has_relative_path(); folder = folder.parent_path()) {
        const std::string name = folder.filename();
        const std::size_t end = name.rfind(".update-");
        if (name.starts_with('.') && end != std::string::npos) {
            fs::path installed = folder.parent_path() / name.substr(1, end - 1);
            if (folder == stagingFolderFor(installed)) {
                return installed;
            }
        }
    }
    return {};
}

/// Replaces this process by the installed launcher. Returns only on failure.
void runInstalled(const fs::path& target, char* const* argv) {
    const auto bundle = Bundle::bundleWithPath(target);
    if (bundle) {
        const auto error = replaceProcess(bundle->executablePath(), argv);
        logUpdater("the installed version could not be started: " + error->localizedDescription);
    }
}

/// The same if another process has exchanged the bundles since this process was started: the path
/// of the running executable has changed.
void followExchange(const fs::path& target, char* const* argv) {
    std::error_code unknown;
    if (fs::read_symlink("/proc/self/exe", unknown) != executablePathOfThisProcess()) {
        runInstalled(target, argv);
    }
}

/// Opens the record if it is that of the running version. Follows an exchange.
std::optional<ProcessRegister> registerOfThisVersion(const Bundle& bundle, char* const* argv) {
    auto opened = openRegister(bundle.bundlePath());
    if (opened && !*opened) {
        return std::nullopt;
    }
    const auto version = opened ? versionIn(**opened, bundle.bundlePath()) : std::nullopt;
    if (version && version->version == bundle.shortVersion()) {
        return *std::move(opened);
    }
    followExchange(bundle.bundlePath(), argv);
    if (!opened && opened.error().code != NSFileReadCorruptFileError) {
        logUpdater("this start is not counted: " + opened.error().localizedDescription);
    }
    return std::nullopt;
}

/// Registers this process in the record, or rolls back. Does nothing if another start has confirmed
/// the version in the meantime.
void count(ProcessRegister processes, const fs::path& target, char* const* argv) {
    auto error = processes.lock();
    if (!error && !processes.isValid()) {
        followExchange(target, argv);
        return;
    }
    const auto version = versionIn(processes, target);
    if (!error && version && processes.countLost() >= kMostFailedStarts &&
        rollBack(processes, *version, target)) {
        runInstalled(target, argv);
        std::_Exit(EXIT_FAILURE);
    }
    // A signal before the action is set would look like a crash.
    Application::deferSignals();
    error = error ? std::move(error) : processes.add();
    processes.unlock();
    if (error) {
        logUpdater("this start is not counted: " + error->localizedDescription);
    }
    theStart.emplace(CountedStart{std::move(processes), target});
    Application::setSignalAction([] { theStart->processes.remove(); });
    Application::setLastWork(endStart);
}

}  // namespace

Status recordUnconfirmed(const fs::path& target, const UnconfirmedVersion& version) {
    const std::string note = textOf({{"version", version.version},
                                     {"digest", version.digest},
                                     {"previousVersion", version.previousVersion},
                                     {"previous", base64Encoded(version.previous.native())}});
    return replaceFileDurably(unconfirmedRecordPath(target), ProcessRegister::emptyRegister(note),
                              0600);
}

fs::path unconfirmedRecordPath(const fs::path& target) {
    return stagingFolderFor(target) / "first-starts";
}

Result<std::optional<UnconfirmedVersion>> unconfirmedVersion(const fs::path& target) {
    const auto processes = openRegister(target);
    if (!processes && processes.error().code != NSFileReadCorruptFileError) {
        return processes.error();
    }
    auto version = processes && *processes ? versionIn(**processes, target) : std::nullopt;
    const auto installed = version ? Bundle::bundleWithPath(target) : std::nullopt;
    if (version && !installed) {
        return readError(ENOENT, target.native());
    }
    const bool isInstalled = installed && installed->shortVersion() == version->version;
    return isInstalled ? std::move(version) : std::nullopt;
}

void confirmVersion(const fs::path& target) {
    const auto version = unconfirmedVersion(target);
    if (!version || !*version) {
        return;
    }
    if (auto processes = openRegister(target); processes && *processes) {
        confirm(**processes, target, removePrevious);
    }
}

Result<bool> returnToPrevious(const fs::path& target) {
    auto opened = openRegister(target);
    if (!opened || !*opened) {
        return opened ? Result<bool>(false) : opened.error();
    }
    ProcessRegister& processes = **opened;
    auto error = processes.lock();
    // On a file system without these locks, no start can confirm the version at the same time.
    if (error && error->code == NSFileLockingError) {
        return error;
    }
    const auto version = versionIn(processes, target);
    if (!version || !processes.isValid() || versionAt(target) != version->version) {
        return false;
    }
    error = exchangeBack(processes, *version, target);
    return error ? Result<bool>(std::move(error)) : true;
}

bool isCountedStart() { return theStart.has_value(); }

void beginStart(char* const* argv) {
    const Bundle& bundle = Bundle::mainBundle();
    const fs::path& target = bundle.bundlePath();
    if (const fs::path installed = installedInPlaceOf(target); !installed.empty()) {
        repairInstallation(installed);
        runInstalled(installed, argv);
    }
    if (auto processes = registerOfThisVersion(bundle, argv)) {
        count(*std::move(processes), target, argv);
    }
}

void endStart() {
    if (theStart) {
        confirm(theStart->processes, theStart->target, removePreviousInBackground);
        theStart->processes.unlock();
    }
}

}  // namespace teravolant::platform
