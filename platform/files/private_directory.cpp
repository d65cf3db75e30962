#include "platform/files/private_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

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

int checkWritable(const std::filesystem::path& path) {
    return access(path.c_str(), W_OK) == 0 ? 0 : errno;
}

}  // namespace teravolant::platform
