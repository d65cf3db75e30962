#include "update_framework/staging.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "platform/core/error.h"
#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "update_framework/record.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

fs::path recordPath(const fs::path& cacheFolder) { return cacheFolder / "staged.plist"; }

/// Where the old bundle waits while the new one is moved in, on a file system that can't exchange.
fs::path asidePath(const fs::path& target) { return stagingFolderFor(target) / ".previous.app"; }

Error notInstalled(const StagedUpdate& update, int errorNumber) {
    Error error =
        updaterError(SQRLUpdaterErrorInstallationFailed,
                     "The update to version " + update.version +
                         " could not be put into the place of “" + update.target.string() + "”");
    const Error reason = errorFromErrno(errorNumber, FileAccess::Write, error.localizedDescription);
    error.localizedDescription = reason.localizedDescription;
    return error;
}

int renameOrErrno(const fs::path& from, const fs::path& to) {
    return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

int moveAsideAndIn(const StagedUpdate& update) {
    const fs::path aside = asidePath(update.target);
    if (const int failure = renameOrErrno(update.target, aside)) {
        return failure;
    }
    const int failure = renameOrErrno(update.staged, update.target);
    if (failure != 0) {
        renameOrErrno(aside, update.target);
    }
    return failure;
}

int exchange(const StagedUpdate& update) {
    if (renameat2(AT_FDCWD, update.staged.c_str(), AT_FDCWD, update.target.c_str(),
                  RENAME_EXCHANGE) == 0) {
        return 0;
    }
    const bool unsupported = errno == EINVAL || errno == ENOSYS || errno == ENOTSUP;
    return unsupported ? moveAsideAndIn(update) : errno;
}

}  // namespace

fs::path stagingFolderFor(const fs::path& target) {
    return target.parent_path() /
           ("." + target.filename().string() + ".update-" + std::to_string(geteuid()));
}

std::optional<StagedUpdate> readStagedUpdate(const fs::path& cacheFolder) {
    Record record = readRecord(recordPath(cacheFolder));
    StagedUpdate update{.version = record["version"],
                        .archiveSha256 = record["archiveSha256"],
                        .treeDigest = record["treeDigest"],
                        .staged = record["staged"],
                        .target = record["target"]};
    // Nothing outside of the staging folder may ever be moved or removed for a record's sake.
    const auto inside = update.staged.lexically_relative(stagingFolderFor(update.target));
    if (!update.target.is_absolute() || inside.empty() || *inside.begin() == ".." ||
        inside == "." || update.staged != update.staged.lexically_normal() ||
        update.target != update.target.lexically_normal()) {
        return std::nullopt;
    }
    return update;
}

Status writeStagedUpdate(const fs::path& cacheFolder, const StagedUpdate& update) {
    return writeRecord(recordPath(cacheFolder), {{"version", update.version},
                                                 {"archiveSha256", update.archiveSha256},
                                                 {"treeDigest", update.treeDigest},
                                                 {"staged", update.staged.string()},
                                                 {"target", update.target.string()}});
}

void discardStaging(const fs::path& cacheFolder, const fs::path& target) {
    repairInstallation(target);
    std::error_code notThere;
    fs::remove(recordPath(cacheFolder), notThere);
    // What can't be removed now is tried again by the next cycle, which finds it by its name.
    (void)removeTree(stagingFolderFor(target));
}

Status installStagedUpdate(const fs::path& cacheFolder, const StagedUpdate& update) {
    if (const int failure = exchange(update)) {
        return notInstalled(update, failure);
    }
    // Until the exchange is on the disk, a power failure may take it back, and then the old bundle
    // must be there: the next cycle clears it away.
    if (flushFolderOf(update.target) == 0) {
        discardStaging(cacheFolder, update.target);
    }
    return std::nullopt;
}

void repairInstallation(const fs::path& target) {
    if (!fileExists(target) && fileExists(asidePath(target))) {
        (void)moveItem(asidePath(target), target);
    }
}

}  // namespace teravolant::platform
