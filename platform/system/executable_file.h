#pragma once

#include <filesystem>

#include "platform/core/result.h"

// Checks of programs before they run. All operations read the headers of the file only, may be
// called from any thread, and return errors of `NSCocoaErrorDomain`.
namespace teravolant::platform {

/// Checks that the file is a complete ELF program or shared library for this machine. Refuses
/// object files and core dumps.
///
/// Fails with `NSExecutableArchitectureMismatchError` if the file has another format, or another
/// class, byte order or machine than this build. Fails with `NSExecutableNotLoadableError` if the
/// file is empty, damaged, or truncated: if a header table or a loaded segment ends beyond its end.
/// Fails with a reading error if it is not a regular file that the user may read.
Status checkElfFile(const std::filesystem::path& path);

/// Checks that the user can execute the file: that the user may do so, that its file system allows
/// it, and that the file is a script (it begins with "#!") or passes `checkElfFile` and its program
/// interpreter exists.
///
/// Does not check the contents of a file that the user may execute but not read.
Status checkExecutable(const std::filesystem::path& path);

}  // namespace teravolant::platform
