#pragma once

#include "launcher/command_line.h"

namespace teravolant {

/// Replaces the machine-wide install parameters with those that the arguments specify. Clears the
/// parameters of earlier calls first. Only the superuser can write them; for other users the store
/// refuses the writes without reporting it.
void writeInstallParameters(const ArgumentDictionary& arguments);

}  // namespace teravolant
