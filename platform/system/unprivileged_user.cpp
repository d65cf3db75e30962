#include "platform/system/unprivileged_user.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <array>

namespace teravolant::platform {

UnprivilegedUser unprivilegedUser() {
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    const bool isKnown =
        getpwnam_r("nobody", &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr;
    return isKnown && entry.pw_uid != 0 && entry.pw_gid != 0
               ? UnprivilegedUser{.user = entry.pw_uid, .group = entry.pw_gid}
               : UnprivilegedUser{};
}

bool becomeUnprivileged() {
    if (geteuid() != 0) {
        return true;
    }
    const auto [user, group] = unprivilegedUser();
    return setgroups(0, nullptr) == 0 && setresgid(group, group, group) == 0 &&
           setresuid(user, user, user) == 0 && setuid(0) != 0;
}

}  // namespace teravolant::platform
