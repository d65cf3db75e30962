#pragma once

#include "launcher/command_line.h"

namespace teravolant {

/// Records the machine-wide choices that the superuser's arguments make, after clearing all that an
/// earlier call recorded. For the superuser: the store refuses the writes of others, silently.
void writeInstallParameters(const ArgumentDictionary& arguments);

}  // namespace teravolant
