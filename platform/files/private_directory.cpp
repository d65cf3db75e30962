#include "platform/files/private_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"

namespace teravolant::platform {

std::string userIdText() { return std::to_string(geteuid()); }

int createPrivateDirectory(const std::filesystem::path& path) {
    return mkdir(path.c_str(), S_IRWXU) == 0 ? 0 : errno;
}

bool isPrivateDirectory(const std::filesystem::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

Status checkPrivateDirectories(const std::filesystem::path& base,
                               const std::filesystem::path& relative) {
    std::filesystem::path folder = base;
    for (const auto& component : relative) {
        folder /= component;
        struct stat status {};
        if (lstat(folder.c_str(), &status) == 0 && !isPrivateDirectory(folder)) {
            return Error{.domain = std::string(NSCocoaErrorDomain),
                         .code = NSFileWriteNoPermissionError,
                         .localizedDescription = quoted(folder.native()) +
                                                 " is not used: it must be a folder of user " +
                                                 userIdText() +
                                                 " that no other user can write to."};
        }
    }
    return std::nullopt;
}

Status preparePrivateDirectory(const std::filesystem::path& path) {
    if (auto error = createDirectory(path.parent_path())) {
        return error;
    }
    const auto failed = [&path](int errorNumber) {
        return errorFromErrno(errorNumber, FileAccess::Write,
                              "The folder " + quoted(path.native()) + " could not be prepared");
    };
    if (mkdir(path.c_str(), S_IRWXU) == 0) {
        return std::nullopt;
    }
    struct stat status {};
    if (errno != EEXIST || lstat(path.c_str(), &status) != 0) {
        return failed(errno);
    }
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid()) {
        return failed(S_ISDIR(status.st_mode) ? EACCES : ENOTDIR);
    }
    constexpr mode_t kAllBits = 07777;
    const mode_t before = status.st_mode & kAllBits;
    if (before == S_IRWXU) {
        return std::nullopt;
    }
    // The sticky bit marks a folder that is not yet empty, in case this process is killed.
    if (chmod(path.c_str(), S_IRWXU | S_ISVTX) != 0 || lstat(path.c_str(), &status) != 0) {
        return failed(errno);
    }
    if ((status.st_mode & kAllBits) == before && before != (S_IRWXU | S_ISVTX)) {
        return std::nullopt;  // The file system has no permissions.
    }
    std::error_code unreadable;
    for (std::filesystem::directory_iterator walk(path, unreadable), end;
         !unreadable && walk != end; walk.increment(unreadable)) {
        if (auto error = removeTree(walk->path())) {
            return error;
        }
    }
    const bool isReady = !unreadable && chmod(path.c_str(), S_IRWXU) == 0;
    return isReady ? Status() : failed(unreadable ? unreadable.value() : errno);
}

Status checkReplaceable(const std::filesystem::path& path) {
    const std::filesystem::path around = path.parent_path();
    const auto refused = [&path](const std::string& reason) {
        return Error{.domain = std::string(NSCocoaErrorDomain),
                     .code = NSFileWriteNoPermissionError,
                     .localizedDescription = quoted(path.native()) +
                                             " can't be replaced by this user: " + reason + "."};
    };
    for (const auto& [folder, what] :
         {std::pair(path, "it"), std::pair(around, "the folder around it")}) {
        if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0) {
            continue;
        }
        if (errno == EROFS) {
            return refused("the file system of " + quoted(folder.native()) + " is read-only");
        }
        return refused(std::string(what) + " can't be written (" + strerror(errno) + ")");
    }
    struct stat bundle {};
    struct stat folder {};
    const bool isKnown = stat(path.c_str(), &bundle) == 0 && stat(around.c_str(), &folder) == 0;
    // In a folder with the sticky bit, only the owners may move an item.
    if (isKnown && (folder.st_mode & S_ISVTX) != 0 && bundle.st_uid != geteuid() &&
        folder.st_uid != geteuid()) {
        return refused("it belongs to another user, and the folder around it has the sticky bit");
    }
    return std::nullopt;
}

}  // namespace teravolant::platform
