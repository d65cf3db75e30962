#pragma once

#include <optional>

#include "platform/core/result.h"
#include "update_framework/staging.h"
#include "update_framework/update_cycle.h"

// The part of the framework that needs the libraries for transport, archives and signatures is a
// loadable module in the bundle, so that a start without an update check loads none of them.
//
// The module has its own copy of the platform's code and state. Its `Bundle::mainBundle()` would be
// read when the module is loaded, after the bundle may have been replaced. The cycle therefore uses
// only the values in `UpdateCycle`.
namespace teravolant::platform {

/// The function that the module exports under `kRunUpdateCycleSymbol`. The caller passes its own
/// `buildVersion`; the module fails if its own differs, because the layout of the types may differ.
using RunUpdateCycleFunction = void(const char* build, const UpdateCycle& cycle,
                                    Result<std::optional<StagedUpdate>>& result);
inline constexpr const char* kRunUpdateCycleSymbol = "teravolantRunUpdateCycle";

/// Loads Contents/Frameworks/libTeravolantUpdate.so of the main bundle and runs the cycle in it, on
/// the calling thread. Fails if the module is missing, incomplete or of another build.
Result<std::optional<StagedUpdate>> runUpdateCycleInModule(const UpdateCycle& cycle);

}  // namespace teravolant::platform
