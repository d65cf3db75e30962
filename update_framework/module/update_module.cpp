#include "update_framework/update_module.h"

#include <exception>
#include <string_view>

#include "platform/core/build_version.h"
#include "update_framework/module/run_update_cycle.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {

extern "C" [[gnu::visibility("default")]] RunUpdateCycleFunction teravolantRunUpdateCycle;

void teravolantRunUpdateCycle(const char* build, const UpdateCycle& cycle,
                              Result<std::optional<StagedUpdate>>& result) {
    if (std::string_view(build) != buildVersion()) {
        result = updaterError(SQRLUpdaterErrorCheckNotPossible,
                              std::string("The bundle was replaced by version ") + buildVersion() +
                                  " after this program was started.");
        return;
    }
    // The launcher has its own copy of the C++ library and can't catch this module's exceptions.
    try {
        result = runUpdateCycle(cycle);
    } catch (const std::exception& exception) {
        result = updaterError(SQRLUpdaterErrorCheckNotPossible,
                              std::string("The update check failed: ") + exception.what());
    }
}

}  // namespace teravolant::platform
