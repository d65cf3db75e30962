#include "platform/files/free_space.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <map>
#include <optional>
#include <string>

#include "platform/core/file_error.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

std::optional<std::uint64_t> freeBytesOf(const std::filesystem::path& folder) {
    struct statvfs space {};
    if (statvfs(folder.c_str(), &space) != 0 || space.f_blocks == 0) {
        return std::nullopt;
    }
    return std::uint64_t{space.f_bavail} * space.f_frsize;
}

}  // namespace

Status checkFreeSpace(const std::vector<NeededSpace>& needs) {
    std::map<dev_t, std::uint64_t> needed;
    for (const auto& [folder, bytes] : needs) {
        struct stat status {};
        if (stat(folder.c_str(), &status) != 0) {
            continue;
        }
        std::uint64_t& sum = needed[status.st_dev];
        if (__builtin_add_overflow(sum, bytes, &sum)) {
            sum = UINT64_MAX;
        }
        const auto free = freeBytesOf(folder);
        if (free && *free < sum) {
            return outOfSpaceError(folder, sum);
        }
    }
    return std::nullopt;
}

Status outOfSpaceError(const std::filesystem::path& folder, std::uint64_t needed) {
    const auto free = freeBytesOf(folder);
    return errorFromErrno(ENOSPC, FileAccess::Write,
                          "The update needs " + std::to_string(needed) +
                              " more bytes on the file system of " + quoted(folder.native()) +
                              ", where " + (free ? std::to_string(*free) : "an unknown number") +
                              " are free");
}

}  // namespace teravolant::platform
