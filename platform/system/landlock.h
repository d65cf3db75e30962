#pragma once

#include <cstdint>

// The Landlock rules of a confined program (see confinement.h).
namespace teravolant::platform {

/// The version of the kernel's Landlock interface, or 0 if it has none or has it switched off.
int landlockVersion();

/// Forbids to create, change, remove and execute files, to bind TCP ports, and to signal or connect
/// to processes outside of the confinement. Returns false if the kernel does not enforce it.
bool forbidChangesOfFiles();

/// Forbids access to files, and TCP. Below `folder` it allows to open and list folders, and to
/// create and write regular files, folders, symbolic links and hard links. Needs version 2. Returns
/// false if the kernel does not enforce it.
bool allowOnlyCreationBelow(int folder);

}  // namespace teravolant::platform
