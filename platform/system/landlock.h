#pragma once

#include <cstdint>

// The Landlock rules of a confined program (see confinement.h).
namespace teravolant::platform {

/// Returns the version of the kernel's Landlock interface, or 0 if it is missing or disabled.
int landlockVersion();

/// Forbids to create, change, remove and execute files, to bind TCP ports, and to signal or connect
/// to processes outside of the confinement.
///
/// Allows to read files, except below the folders that hold users' data or devices: the usual ones,
/// and the one with the user's home directory in the password database. It also allows to read
/// `additionalFile`, if that is not null. Must be called before a thread starts. Returns false if
/// the kernel does not enforce it.
bool allowOnlyReadingOfSystem(const char* additionalFile);

/// Forbids access to files, and TCP. Below `folder` it allows to open and list folders, and to
/// create and write regular files, folders, symbolic links and hard links. In version 1, a hard
/// link between two folders fails with EXDEV. Returns false if the kernel does not enforce it.
bool allowOnlyCreationBelow(int folder);

/// Forbids the calling thread, and the processes that it starts, to create, change and remove files
/// except below `folder` and /dev/null, and to signal processes outside of the confinement.
/// Reading, execution and the network stay allowed. In version 1, a rename or a hard link between
/// two folders fails with EXDEV. Needs PR_SET_NO_NEW_PRIVS. Returns false if the kernel does not
/// enforce it.
bool allowChangesOnlyBelow(int folder);

}  // namespace teravolant::platform
