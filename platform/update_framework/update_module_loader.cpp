#include <dlfcn.h>

#include "platform/update_framework/update_module.h"
#include "platform/update_framework/updater_error.h"

namespace teravolant::platform {

Result<std::optional<StagedUpdate>> runUpdateCycleInModule(const UpdateCycle& cycle) {
    const std::filesystem::path path =
        Bundle::mainBundle().bundlePath() / "Contents" / "Frameworks" / "libTeravolantUpdate.so";
    // Never closed: the libraries that come with it must not be unloaded under their own threads.
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const symbol = module == nullptr ? nullptr : dlsym(module, kRunUpdateCycleSymbol);
    if (symbol == nullptr) {
        return updaterError(
            SQRLUpdaterErrorCheckNotPossible,
            std::string("The bundle's update module can't be loaded: ") + dlerror());
    }
    Result<std::optional<StagedUpdate>> result = std::optional<StagedUpdate>();
    reinterpret_cast<RunUpdateCycleFunction*>(symbol)(kUpdateModuleBuild, cycle, result);
    return result;
}

}  // namespace teravolant::platform
