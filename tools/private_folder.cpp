#include "tools/private_folder.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"

namespace teravolant::release {

platform::Result<PrivateFolder> PrivateFolder::create() {
    std::error_code unusable;
    std::filesystem::path folder = std::filesystem::temp_directory_path(unusable);
    if (unusable) {
        folder = "/tmp";
    }
    std::string name = folder / "teravolant-release-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        return platform::errorFromErrno(
            errno, platform::FileAccess::Write,
            "A temporary folder could not be created in " + platform::quoted(folder.string()));
    }
    return PrivateFolder(name);
}

PrivateFolder::~PrivateFolder() {
    if (!_path.empty()) {
        (void)platform::removeTree(_path);
    }
}

}  // namespace teravolant::release
