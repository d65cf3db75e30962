#include "platform/files/exchange.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/core/file_descriptor.h"

namespace teravolant::platform {

int exchangeItems(const std::filesystem::path& first, const std::filesystem::path& second) {
    if (renameat2(AT_FDCWD, first.c_str(), AT_FDCWD, second.c_str(), RENAME_EXCHANGE) == 0) {
        return 0;
    }
    // File systems return EINVAL for a flag that they don't support, old kernels ENOSYS.
    return errno == EINVAL || errno == ENOSYS ? ENOTSUP : errno;
}

int flushFileSystemOf(const std::filesystem::path& folder) {
    const FileDescriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return descriptor && syncfs(descriptor.get()) == 0 ? 0 : errno;
}

}  // namespace teravolant::platform
