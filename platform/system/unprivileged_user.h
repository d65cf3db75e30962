#pragma once

// The confined programs that root starts run as the user nobody, so that a compromised one does not
// have the rights of root. Both operations read the user database.
namespace teravolant::platform {

/// The ids of the user nobody; the defaults apply if the user database has no such user.
struct UnprivilegedUser {
    unsigned user = 65534;
    unsigned group = 65534;
};

/// May be called from any thread.
[[nodiscard]] UnprivilegedUser unprivilegedUser();

/// Permanently changes the process from root to the unprivileged user: user, group and
/// supplementary groups. Does nothing in a process of another user. Call it before any thread is
/// started.
///
/// Returns false if the kernel refuses, or if the process could become root again; it must then
/// exit.
[[nodiscard]] bool becomeUnprivileged();

}  // namespace teravolant::platform
