// On a file system that can't exchange two folders, three renames move the installed bundle aside
// within the staging folder, the other bundle to the target, and the first one to the place of the
// other. After a kill behind the first rename, nothing is at the target; after a kill behind the
// second, nothing is at the place of the other.
#include "update_framework/bundle_exchange.h"

#include <cerrno>
#include <system_error>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/durable_file.h"
#include "platform/files/exchange.h"
#include "platform/files/files.h"
#include "platform/files/private_directory.h"
#include "update_framework/staging.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

/// Where the installed bundle is between the renames.
fs::path asidePath(const fs::path& target) { return stagingFolderFor(target) / ".previous.app"; }

/// Returns 0 or an `errno` value.
int renameItem(const fs::path& from, const fs::path& to) {
    std::error_code failure;
    fs::rename(from, to, failure);
    return failure.value();
}

/// Returns 0 or an `errno` value.
int exchangeWithRenames(const fs::path& other, const fs::path& target) {
    const fs::path aside = asidePath(target);
    if (const int failure = renameItem(target, aside)) {
        return failure;
    }
    if (const int failure = renameItem(other, target)) {
        renameItem(aside, target);
        return failure;
    }
    renameItem(aside, other);  // If it fails, `repairInstallation` repeats it.
    return 0;
}

}  // namespace

Status exchangeBundles(const fs::path& other, const fs::path& target) {
    int failure = exchangeItems(other, target);
    if (failure == ENOTSUP) {
        failure = exchangeWithRenames(other, target);
    }
    if (failure != 0) {
        return errorFromErrno(failure, FileAccess::Write,
                              "The bundle at " + quoted(target.string()) +
                                  " could not be exchanged with another one");
    }
    // Before the flush, a power failure can undo the exchange; both bundles still exist then.
    (void)flushFolderOf(target);
    return std::nullopt;
}

void repairInstallation(const fs::path& target, const fs::path& other) {
    const fs::path aside = asidePath(target);
    if (!isPrivateDirectory(stagingFolderFor(target)) || !fileExists(aside)) {
        return;
    }
    if (!fileExists(target)) {
        (void)moveItem(aside, target);
    } else if (!other.empty() && !fileExists(other)) {
        (void)moveItem(aside, other);
    }
}

}  // namespace teravolant::platform
