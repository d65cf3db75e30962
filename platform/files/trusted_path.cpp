#include "platform/files/trusted_path.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"

// How it works: `checkTrustedPath` resolves the path as the kernel does, one component at a time,
// and checks each item that it passes. A link leads anywhere, so the folders above its target are
// checked as well.
namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr int kMostLinks = 40;  ///< The kernel follows no more links in one path.

/// Whether a folder's sticky bit protects its items: it lets only their owners replace them, but
/// everyone who may write to the folder can create new ones.
enum class StickyBit : bool { Protects, DoesNotProtect };

bool isTrustedOwner(uid_t user) {
    struct stat root {};
    return user == 0 || user == geteuid() || (lstat("/", &root) == 0 && user == root.st_uid);
}

bool isNameOf(uid_t user, std::string_view name) {
    const passwd* const entry = getpwuid(user);
    return entry != nullptr && name == entry->pw_name;
}

/// Whether another user has this primary group.
bool isPrimaryGroupOfOthers(gid_t group) {
    bool found = false;
    setpwent();
    while (const passwd* const entry = getpwent()) {
        found = found || (entry->pw_gid == group && !isTrustedOwner(entry->pw_uid));
    }
    endpwent();
    return found;
}

bool hasPrimaryGroup(uid_t user, gid_t group) {
    const passwd* const entry = getpwuid(user);
    return entry != nullptr ? entry->pw_gid == group : group == getegid();
}

/// Whether the group has no members except root and the current user. Requires the user's name for
/// the group as well, because a database on a network may not list the members. On some
/// distributions, system accounts without a login have root's group as their primary one.
bool isTrustedGroup(gid_t group) {
    if (group != 0 && !hasPrimaryGroup(geteuid(), group)) {
        return false;
    }
    const ::group* const entry = getgrgid(group);
    if (entry == nullptr) {
        return true;
    }
    if (group != 0 && !isNameOf(geteuid(), entry->gr_name)) {
        return false;
    }
    for (char** member = entry->gr_mem; *member != nullptr; ++member) {
        if (!isNameOf(geteuid(), *member) && !isNameOf(0, *member)) {
            return false;
        }
    }
    return group == 0 || !isPrimaryGroupOfOthers(group);
}

std::string nameOfUser(uid_t user) {
    const passwd* const entry = getpwuid(user);
    return entry != nullptr ? quoted(entry->pw_name) : std::to_string(user);
}

std::string nameOfGroup(gid_t group) {
    const ::group* const entry = getgrgid(group);
    return entry != nullptr ? quoted(entry->gr_name) : std::to_string(group);
}

/// Returns who else can change the item, or an empty text.
std::string whoElseCanChange(const fs::path& item, const struct stat& status, StickyBit stickyBit) {
    if (!isTrustedOwner(status.st_uid)) {
        return "the user " + nameOfUser(status.st_uid);
    }
    const bool isProtected =
        S_ISLNK(status.st_mode) || (S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0 &&
                                    stickyBit == StickyBit::Protects);
    if (isProtected) {
        return {};
    }
    if ((status.st_mode & S_IWOTH) != 0) {
        return "every user";
    }
    if ((status.st_mode & S_IWGRP) == 0) {
        return {};
    }
    // With an access control list, the group bits limit every entry of the list.
    if (lgetxattr(item.c_str(), "system.posix_acl_access", nullptr, 0) > 0) {
        return "the users in its access control list";
    }
    return isTrustedGroup(status.st_gid) ? "" : "the group " + nameOfGroup(status.st_gid);
}

Status check(const fs::path& item, const struct stat& status,
             StickyBit stickyBit = StickyBit::Protects) {
    const std::string who = whoElseCanChange(item, status, stickyBit);
    if (who.empty()) {
        return std::nullopt;
    }
    return Error{.domain = std::string(NSCocoaErrorDomain),
                 .code = NSFileWriteNoPermissionError,
                 .localizedDescription = quoted(item.native()) + " can be changed by " + who + "."};
}

/// Puts the components of a path in front of the remaining ones.
void prepend(const fs::path& path, std::vector<fs::path>& reversed) {
    std::vector<fs::path> components(path.begin(), path.end());
    std::erase_if(components,
                  [](const fs::path& component) { return component.empty() || component == "."; });
    reversed.insert(reversed.end(), components.rbegin(), components.rend());
}

}  // namespace

Status checkTrustedPath(const fs::path& path) {
    std::vector<fs::path> remaining;  // The next component is the last element.
    prepend(path, remaining);
    fs::path folder = "/";
    struct stat folderStatus {};
    int links = 0;
    while (!remaining.empty()) {
        const fs::path component = remaining.back();
        remaining.pop_back();
        fs::path item = component == ".." ? folder.parent_path() : folder / component;
        struct stat status {};
        if (lstat(item.c_str(), &status) != 0) {
            return check(folder, folderStatus, StickyBit::DoesNotProtect);
        }
        if (auto error = check(item, status)) {
            return error;
        }
        if (!S_ISLNK(status.st_mode)) {
            folder = std::move(item);
            folderStatus = status;
            continue;
        }
        std::error_code failure;
        const fs::path target = fs::read_symlink(item, failure);
        if (failure || ++links > kMostLinks) {
            return std::nullopt;
        }
        prepend(target, remaining);
    }
    return std::nullopt;
}

Status checkTrustedTree(const fs::path& folder) {
    auto error = checkTrustedPath(folder);
    const auto checkItem = [&error](const fs::path& item) {
        struct stat status {};
        if (lstat(item.c_str(), &status) != 0) {
            error = readError(errno, item.native());
        } else if (S_ISLNK(status.st_mode)) {
            error = checkTrustedPath(item);
        } else {
            error = check(item, status, StickyBit::DoesNotProtect);
        }
    };
    for (const fs::path& item : {folder.parent_path(), folder}) {
        if (!error) {
            checkItem(item);
        }
    }
    std::error_code failure;
    for (fs::recursive_directory_iterator items(folder, failure), end;
         !error && !failure && items != end; items.increment(failure)) {
        checkItem(items->path());
    }
    return failure && !error ? readError(failure.value(), folder.native()) : error;
}

}  // namespace teravolant::platform
