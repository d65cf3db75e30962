#pragma once

namespace teravolant {

/// Unpacks the archive on standard input into the empty folder of descriptor 3, for the parent
/// process `parent`. Writes frames to standard output: the confinement, and the end or an error.
///
/// Confines the process first. Afterwards it can create items below the folder, but neither open a
/// file nor use the network nor start a program. Must be called before any thread is started.
[[noreturn]] void unpackConfined(int parent);

}  // namespace teravolant
