#pragma once

// The confined programs that root starts run as the user nobody (65534 if there is no such
// entry), so that a fault of them does not have the rights of root. Both operations read the user
// database.
namespace teravolant::platform {

struct UnprivilegedUser {
    unsigned user = 65534;
    unsigned group = 65534;
};

/// May be called from any thread.
[[nodiscard]] UnprivilegedUser unprivilegedUser();

/// Changes the process from root to the unprivileged user for ever: user, group and supplementary
/// groups. Does nothing in a process of another user. Call it before any thread is started.
///
/// Returns false if the kernel refuses, or if the process could become root again; it must then
/// exit.
[[nodiscard]] bool becomeUnprivileged();

}  // namespace teravolant::platform
