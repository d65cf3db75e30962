#include "platform/system/executable_path.h"

#include <system_error>

namespace teravolant::platform {

namespace fs = std::filesystem;

const fs::path& executablePathOfThisProcess() {
    static const fs::path& path = *new fs::path([] {
        std::error_code unknown;
        return fs::read_symlink("/proc/self/exe", unknown);
    }());
    return path;
}

}  // namespace teravolant::platform
