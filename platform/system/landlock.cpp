#include "platform/system/landlock.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/core/file_descriptor.h"

namespace teravolant::platform {
namespace {

using Path = std::filesystem::path;

// The kernel headers of some supported systems are older than these constants.
constexpr std::uint64_t kTruncate = 1U << 14U;       // version 3
constexpr std::uint64_t kControlDevice = 1U << 15U;  // version 5
constexpr std::uint64_t kBindTcp = 1U << 0U;         // version 4
constexpr std::uint64_t kConnectTcp = 1U << 1U;      // version 4
constexpr std::uint64_t kScopes = 0b11;              // version 6: abstract sockets, signals

constexpr std::uint64_t kRead = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t kRightsOfVersion1 = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1U) - 1;

/// The argument of landlock_create_ruleset: what is forbidden unless a rule allows it.
struct Restrictions {
    std::uint64_t files = 0;
    std::uint64_t network = 0;
    std::uint64_t scopes = 0;
};

std::uint64_t fileRights(int version) {
    std::uint64_t rights = kRightsOfVersion1;
    rights |= version >= 2 ? LANDLOCK_ACCESS_FS_REFER : 0;
    rights |= version >= 3 ? kTruncate : 0;
    rights |= version >= 5 ? kControlDevice : 0;
    return rights;
}

FileDescriptor createRules(int version, Restrictions restrictions) {
    restrictions.files &= fileRights(version);
    restrictions.network = version >= 4 ? restrictions.network : 0;
    restrictions.scopes = version >= 6 ? kScopes : 0;
    // An older kernel accepts the members that it does not know if they are 0.
    return FileDescriptor(static_cast<int>(
        syscall(SYS_landlock_create_ruleset, &restrictions, sizeof restrictions, 0)));
}

bool allowBelow(const FileDescriptor& rules, int item, std::uint64_t rights) {
    const landlock_path_beneath_attr below{.allowed_access = rights, .parent_fd = item};
    return syscall(SYS_landlock_add_rule, rules.get(), LANDLOCK_RULE_PATH_BENEATH, &below, 0) == 0;
}

bool enforce(const FileDescriptor& rules) {
    return rules && syscall(SYS_landlock_restrict_self, rules.get(), 0) == 0;
}

/// Follows symbolic links. Allows nothing if the file or folder cannot be opened.
void allowReading(const FileDescriptor& rules, const Path& path) {
    const FileDescriptor item(open(path.c_str(), O_PATH | O_CLOEXEC));
    struct stat status {};
    if (item && fstat(item.get(), &status) == 0) {
        // The kernel refuses a rule that allows to list a file.
        allowBelow(rules, item.get(),
                   S_ISDIR(status.st_mode) ? kRead : LANDLOCK_ACCESS_FS_READ_FILE);
    }
}

/// Resolves symbolic links, in the part of the path that exists.
Path resolved(const Path& path) {
    std::error_code failure;
    Path result = std::filesystem::weakly_canonical(path, failure);
    return failure ? path : result;
}

/// Returns the folder with the home directories of all users, as far as it holds no libraries or
/// settings of the system. Returns an empty path for an account without a home directory.
Path foldersOfUsers() {
    const passwd* const user = getpwuid(getuid());
    const Path home = user != nullptr ? resolved(user->pw_dir) : Path();
    const Path names = home.relative_path();
    if (!home.is_absolute() || names.empty()) {
        return {};
    }
    Path top = "/" / *names.begin();
    const Path ofSystem[] = {"/etc", "/run", "/usr", "/var"};
    if (std::find(std::begin(ofSystem), std::end(ofSystem), top) == std::end(ofSystem)) {
        return top;
    }
    return home == top ? Path() : home;
}

/// Devices can be cameras and microphones. /sysroot can hold the same home directories as /home.
std::vector<Path> privateFolders() {
    std::vector<Path> folders = {"/Users", "/dev",       "/home",      "/media",  "/mnt",
                                 "/root",  "/run/media", "/run/user",  "/srv",    "/sysroot",
                                 "/tmp",   "/var/mail",  "/var/spool", "/var/tmp"};
    std::transform(folders.begin(), folders.end(), folders.begin(), resolved);
    if (Path folder = foldersOfUsers(); !folder.empty()) {
        folders.push_back(std::move(folder));
    }
    return folders;
}

bool containsAny(const Path& folder, const std::vector<Path>& paths) {
    return std::any_of(paths.begin(), paths.end(),
                       [start = folder.native() + '/'](const Path& path) {
                           return path.native().starts_with(start);
                       });
}

/// Needs no rules for symbolic links: the kernel applies the rules of their targets.
void allowReadingBelow(const FileDescriptor& rules, const Path& folder,
                       const std::vector<Path>& exceptions) {
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        const Path& path = entry->path();
        std::error_code unknown;
        if (entry->is_symlink(unknown) ||
            std::find(exceptions.begin(), exceptions.end(), path) != exceptions.end()) {
            continue;
        }
        if (containsAny(path, exceptions)) {
            allowReadingBelow(rules, path, exceptions);
        } else {
            allowReading(rules, path);
        }
    }
}

}  // namespace

int landlockVersion() {
    const auto version =
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    return version > 0 ? static_cast<int>(version) : 0;
}

bool allowOnlyReadingOfSystem(const char* additionalFile) {
    const FileDescriptor rules =
        createRules(landlockVersion(), {.files = ~std::uint64_t{0}, .network = kBindTcp});
    if (!rules) {
        return false;
    }
    allowReadingBelow(rules, "/", privateFolders());
    // The first can be a link to a folder such as /mnt.
    for (const char* file : {"/etc/resolv.conf", "/dev/null", "/dev/random", "/dev/urandom"}) {
        allowReading(rules, file);
    }
    if (additionalFile != nullptr) {
        allowReading(rules, additionalFile);
    }
    return enforce(rules);
}

bool allowOnlyCreationBelow(int folder) {
    const int version = landlockVersion();
    const FileDescriptor rules =
        createRules(version, {.files = ~std::uint64_t{0}, .network = kBindTcp | kConnectTcp});
    const std::uint64_t rights =
        fileRights(version) & (LANDLOCK_ACCESS_FS_READ_DIR | LANDLOCK_ACCESS_FS_WRITE_FILE |
                               LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                               LANDLOCK_ACCESS_FS_MAKE_SYM | LANDLOCK_ACCESS_FS_REFER | kTruncate);
    return rules && allowBelow(rules, folder, rights) && enforce(rules);
}

bool allowChangesOnlyBelow(int folder) {
    const int version = landlockVersion();
    const std::uint64_t rights =
        fileRights(version) & ~(kRead | LANDLOCK_ACCESS_FS_EXECUTE | kControlDevice);
    const FileDescriptor rules = createRules(version, {.files = rights});
    const FileDescriptor null(open("/dev/null", O_PATH | O_CLOEXEC));
    // A file takes only the rights that files have.
    return rules && allowBelow(rules, folder, rights) &&
           allowBelow(rules, null.get(), rights & (LANDLOCK_ACCESS_FS_WRITE_FILE | kTruncate)) &&
           enforce(rules);
}

}  // namespace teravolant::platform
