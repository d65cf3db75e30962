#include "platform/files/private_folder.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"

namespace teravolant::platform {

Result<PrivateFolder> PrivateFolder::create() {
    std::error_code unusable;
    std::filesystem::path folder = std::filesystem::temp_directory_path(unusable);
    if (unusable) {
        folder = "/tmp";
    }
    std::string name = folder / "teravolant-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        return errorFromErrno(
            errno, FileAccess::Write,
            "A temporary folder could not be created in " + quoted(folder.string()));
    }
    return PrivateFolder(name);
}

PrivateFolder::~PrivateFolder() {
    if (!_path.empty()) {
        (void)removeTree(_path);
    }
}

}  // namespace teravolant::platform
