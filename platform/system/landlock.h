#pragma once

#include <cstdint>

// The Landlock rules of a confined program (see confinement.h).
namespace teravolant::platform {

/// Returns the version of the kernel's Landlock interface, or 0 if it is missing or disabled.
int landlockVersion();

/// Forbids to create, change, remove and execute files, to bind TCP ports, and to signal or connect
/// to processes outside of the confinement, as far as the kernel's version can. Returns false if
/// the kernel enforces nothing.
bool forbidChangesOfFiles();

/// Forbids access to files, and TCP. Below `folder` it allows to open and list folders, and to
/// create and write regular files, folders, symbolic links and hard links. Enforces what
/// the kernel's version can, and returns false if that is nothing or the version is 1.
bool allowOnlyCreationBelow(int folder);

}  // namespace teravolant::platform
