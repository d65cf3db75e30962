#pragma once

#include <optional>

#include "platform/core/result.h"
#include "update_framework/staging.h"
#include "update_framework/update_cycle.h"

// The part of the framework that needs the libraries for transport, archives and signatures is a
// module of its own in the bundle, so that a start without an update check loads none of them.
//
// The module carries a copy of the platform's code with state of its own, which it would find out
// too late, when the bundle may have been exchanged: the cycle asks for nothing but what it is
// handed.
namespace teravolant::platform {

/// What the module exports under `kRunUpdateCycleSymbol`. Both sides must come from the same build:
/// the caller hands in its own `buildVersion`, and the answer to another one is an error.
using RunUpdateCycleFunction = void(const char* build, const UpdateCycle& cycle,
                                    Result<std::optional<StagedUpdate>>& result);
inline constexpr const char* kRunUpdateCycleSymbol = "teravolantRunUpdateCycle";

/// Loads the main bundle's Contents/Frameworks/libTeravolantUpdate.so and has it run the cycle.
Result<std::optional<StagedUpdate>> runUpdateCycleInModule(const UpdateCycle& cycle);

}  // namespace teravolant::platform
