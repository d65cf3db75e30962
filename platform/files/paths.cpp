#include "platform/files/paths.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <vector>

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

std::optional<fs::path> absolutePathFromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || value[0] != '/') {
        return std::nullopt;
    }
    return fs::path(value);
}

fs::path homeFromPasswordDatabase() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
        found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/') {
        return found->pw_dir;
    }
    return "/nonexistent";
}

fs::path baseDirectory(const char* variable, const char* belowHome) {
    if (auto path = absolutePathFromEnvironment(variable)) {
        return *path;
    }
    return homeDirectoryForCurrentUser() / belowHome;
}

}  // namespace

fs::path homeDirectoryForCurrentUser() {
    fs::path home = absolutePathFromEnvironment("HOME").value_or("");
    if (home.empty()) {
        home = homeFromPasswordDatabase();
    }
    std::error_code unresolved;
    fs::path resolved = fs::canonical(home, unresolved);
    return unresolved ? home : resolved;
}

fs::path applicationSupportDirectory() { return baseDirectory("XDG_DATA_HOME", ".local/share"); }

fs::path configurationDirectory() { return baseDirectory("XDG_CONFIG_HOME", ".config"); }

fs::path cachesDirectory() { return baseDirectory("XDG_CACHE_HOME", ".cache"); }

fs::path machineLogDirectory() { return "/var/log"; }

bool isInside(const fs::path& path, const fs::path& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
           folder.end();
}

}  // namespace teravolant::platform
