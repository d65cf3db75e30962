#include "platform/system/landlock.h"

#include <linux/landlock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/core/file_descriptor.h"

namespace teravolant::platform {
namespace {

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

bool enforce(const FileDescriptor& rules) {
    return rules && syscall(SYS_landlock_restrict_self, rules.get(), 0) == 0;
}

}  // namespace

int landlockVersion() {
    const auto version =
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    return version > 0 ? static_cast<int>(version) : 0;
}

bool forbidChangesOfFiles() {
    const int version = landlockVersion();
    return version >= 1 && enforce(createRules(version, {.files = ~kRead, .network = kBindTcp}));
}

bool allowOnlyCreationBelow(int folder) {
    const int version = landlockVersion();
    if (version < 2) {
        return false;
    }
    const FileDescriptor rules =
        createRules(version, {.files = ~std::uint64_t{0}, .network = kBindTcp | kConnectTcp});
    const landlock_path_beneath_attr below{
        .allowed_access = fileRights(version) &
                          (LANDLOCK_ACCESS_FS_READ_DIR | LANDLOCK_ACCESS_FS_WRITE_FILE |
                           LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                           LANDLOCK_ACCESS_FS_MAKE_SYM | LANDLOCK_ACCESS_FS_REFER | kTruncate),
        .parent_fd = folder};
    return rules &&
           syscall(SYS_landlock_add_rule, rules.get(), LANDLOCK_RULE_PATH_BENEATH, &below, 0) ==
               0 &&
           enforce(rules);
}

}  // namespace teravolant::platform
