#include "platform/files/private_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"

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

int checkWritable(const std::filesystem::path& path) {
    return access(path.c_str(), W_OK) == 0 ? 0 : errno;
}

}  // namespace teravolant::platform
