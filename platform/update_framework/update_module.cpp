#include "platform/update_framework/update_module.h"

#include <string_view>

#include "platform/update_framework/updater_error.h"

namespace teravolant::platform {

extern "C" [[gnu::visibility("default")]] RunUpdateCycleFunction teravolantRunUpdateCycle;

void teravolantRunUpdateCycle(const char* build, const UpdateCycle& cycle,
                              Result<std::optional<StagedUpdate>>& result) {
    if (std::string_view(build) == kUpdateModuleBuild) {
        result = runUpdateCycle(cycle);
        return;
    }
    result = updaterError(SQRLUpdaterErrorCheckNotPossible,
                          std::string("The bundle was replaced by version ") + kUpdateModuleBuild +
                              " after this program was started.");
}

}  // namespace teravolant::platform
