#include "programs/superuser.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/files/paths.h"
#include "platform/files/trusted_path.h"

namespace teravolant {

namespace fs = std::filesystem;

platform::Status prepareSuperuser(const fs::path& bundle) {
    if (geteuid() != 0) {
        return std::nullopt;
    }
    umask(S_IWGRP | S_IWOTH);
    // sudo can be set to keep the home of the user who calls it.
    for (const char* name :
         {"HOME", "TMPDIR", "XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"}) {
        unsetenv(name);
    }
    for (const fs::path& folder :
         {platform::configurationDirectory(), platform::cachesDirectory()}) {
        if (auto error = platform::checkTrustedPath(folder)) {
            return error;
        }
    }
    return platform::checkTrustedTree(bundle);
}

std::string whoCanReplace(const fs::path& bundle, const fs::path& program) {
    const fs::path around = bundle.parent_path();
    struct stat status {};
    if (stat(around.c_str(), &status) != 0 || status.st_uid == geteuid() ||
        (faccessat(AT_FDCWD, around.c_str(), W_OK, AT_EACCESS) != 0 && errno == EROFS)) {
        return {};
    }
    if (status.st_uid == 0) {
        return " Root can replace it: sudo " + program.native();
    }
    const passwd* const owner = getpwuid(status.st_uid);
    return " The folder around it belongs to the user " +
           (owner != nullptr ? platform::quoted(owner->pw_name) : std::to_string(status.st_uid)) +
           ".";
}

}  // namespace teravolant
