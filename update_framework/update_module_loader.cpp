#include <dlfcn.h>
#include <elf.h>

#include <cstdint>
#include <fstream>
#include <system_error>

#include "platform/core/build_version.h"
#include "platform/core/error.h"
#include "update_framework/update_module.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

/// The loader maps what the file's head promises, and to touch what is not there ends the process.
/// The section headers stand at the end.
bool isWhole(const std::filesystem::path& module) {
    Elf64_Ehdr head{};
    std::ifstream(module, std::ios::binary).read(reinterpret_cast<char*>(&head), sizeof head);
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(module, unknown);
    return !unknown && head.e_shoff != 0 && head.e_shoff <= size &&
           size - head.e_shoff >= std::uintmax_t{head.e_shnum} * head.e_shentsize;
}

}  // namespace

Result<std::optional<StagedUpdate>> runUpdateCycleInModule(const UpdateCycle& cycle) {
    const std::filesystem::path path =
        Bundle::mainBundle().bundlePath() / "Contents" / "Frameworks" / "libTeravolantUpdate.so";
    // Never closed: the libraries that come with it must not be unloaded under their own threads.
    if (!isWhole(path)) {
        return updaterError(SQRLUpdaterErrorCheckNotPossible,
                            "The bundle's update module “" + path.string() +
                                "” is not whole: install the bundle again.");
    }
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const symbol = module == nullptr ? nullptr : dlsym(module, kRunUpdateCycleSymbol);
    if (symbol == nullptr) {
        return updaterError(
            SQRLUpdaterErrorCheckNotPossible,
            std::string("The bundle's update module can't be loaded: ") + dlerror());
    }
    Result<std::optional<StagedUpdate>> result = std::optional<StagedUpdate>();
    reinterpret_cast<RunUpdateCycleFunction*>(symbol)(buildVersion(), cycle, result);
    return result;
}

}  // namespace teravolant::platform
