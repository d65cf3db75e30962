#pragma once

#include <string_view>

namespace teravolant::platform {

/// Whether a property list in its binary form can be handed to the library that reads it.
///
/// The library ends the process for a key with a zero character, reads what is nested by calling
/// itself, and copies an item for each reference to it, so that a small file can ask for any amount
/// of memory. Refuses such files, nesting deeper than `kDeepestPropertyList`, and references that
/// lead nowhere; leaves everything else to the library.
[[nodiscard]] bool isReadableBinaryPropertyList(std::string_view bytes);

}  // namespace teravolant::platform
