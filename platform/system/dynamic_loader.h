#pragma once

#include <filesystem>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Checks that the system's dynamic loader finds all libraries, symbols and symbol versions that an
/// ELF program or shared library needs. A statically linked file needs none. Does not run the
/// program, and does not check its permissions. Blocks for at most 5 seconds. May be called from
/// any thread.
///
/// Fails with `NSExecutableNotLoadableError` and the loader's own line if it does not. An error of
/// `kProgramErrorDomain` (see confined_program.h) is about the loader and can pass by itself.
Status checkLoadable(const std::filesystem::path& elfFile);

}  // namespace teravolant::platform
