#pragma once

#include <csignal>

#include "platform/core/file_descriptor.h"

// The confinement that a helper program applies to itself at the beginning of `main`, before it
// reads input and before it starts a thread. It cannot be undone.
//
// A program that root started continues as an unprivileged user (see unprivileged_user.h). The
// program is killed when the thread that started it ends. It writes no core dump and gains no
// privileges. Its memory and its number of open files are limited. A denied system call fails with
// EPERM, EACCES, EXDEV or ENOSYS; it does not kill the program.
//
// Both functions exit with status 71 (EX_OSERR) if `launcher` is not the parent process, or if the
// kernel refuses a step that every kernel supports.
namespace teravolant::platform {

/// Which optional parts the kernel enforces.
struct Confinement {
    bool systemCalls = false;  ///< The filter of system calls (seccomp).
    bool files = false;        ///< The restriction of file access (Landlock).
};

/// For a program that connects to servers: it can read files, create sockets and start threads.
/// It cannot change the file system, listen for connections, start a program or another process,
/// or act on another process. Libraries can still be loaded.
///
/// If `files` is true, it cannot read users' data (see landlock.h), except for the certificates in
/// `$SSL_CERT_FILE`.
Confinement confineFetch(pid_t launcher);

/// For a program that creates a tree below `folder` from data that it reads from descriptors.
///
/// It can open and list folders, and create folders, regular files, symbolic links and hard links.
/// It can open no existing file: before, it loads the locale that it needs (C.UTF-8 for
/// `unpackArchive`), and never frees it. It has no threads, sockets or executable memory beyond its
/// own code, and cannot rename or remove. If `files` is false, the permissions of the user alone
/// decide where it can create items. If it is true, a kernel before 5.19 refuses a hard link
/// between two folders with EXDEV.
Confinement confineUnpack(pid_t launcher, const FileDescriptor& folder);

}  // namespace teravolant::platform
