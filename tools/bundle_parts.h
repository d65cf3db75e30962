#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/core/result.h"
#include "platform/system/bundle.h"

// The contents of a bundle that is to be published.
namespace teravolant::release {

/// Fails unless the bundle has all the parts that a launcher needs: its executable, the programs
/// that fetch and unpack updates, the client archive and the launch agents. Fails for an ELF file
/// that is incomplete or for another machine.
[[nodiscard]] platform::Status checkParts(const platform::Bundle& bundle);

/// Fails if the bundle differs from the one at `expected` in the name, the type, the contents, the
/// link target or the owner's right to execute of an item. The message names the first such item.
[[nodiscard]] platform::Status compareBundles(const platform::Bundle& bundle,
                                              const std::filesystem::path& expected);

/// Returns the sum of the sizes of all files in a folder, in bytes.
platform::Result<std::uint64_t> sizeOfFiles(const std::filesystem::path& folder);

}  // namespace teravolant::release
