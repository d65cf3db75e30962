#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Checks that the user can execute the file: that the user may do so, that its file system allows
/// it, and that the file is a script (it begins with "#!") or a complete ELF program for this
/// machine whose program interpreter exists. Refuses object files and core dumps. Reads the headers
/// only, and nothing of a file that the user may execute but not read. May be called from any
/// thread.
///
/// Fails with an error of `NSCocoaErrorDomain`: `NSExecutableArchitectureMismatchError` if the file
/// has another format, or another class, byte order or machine than this build;
/// `NSExecutableNotLoadableError` if the file is empty, damaged, or truncated (a header table or a
/// loaded segment ends beyond its end); a reading error if it is not a regular file.
Status checkExecutable(const std::filesystem::path& path);

enum class FileFormat : std::uint8_t { Elf, Script, Other };

/// Returns the format of a file by its first bytes. Fails like `checkExecutable` for an ELF file
/// that is not a complete program or shared library for this machine. Does not look at permissions
/// and mount options: for a file that is to be run elsewhere.
Result<FileFormat> checkedFormatOf(const std::filesystem::path& path);

}  // namespace teravolant::platform
