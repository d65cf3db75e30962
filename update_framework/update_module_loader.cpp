// Loads the update module and runs a cycle in it.
//
// The module is checked for completeness before dlopen maps it, because an access to a missing page
// of a truncated file raises SIGBUS. It is never closed: the libraries that it loads may have
// threads that still run their code.
#include <dlfcn.h>
#include <elf.h>

#include <cstdint>
#include <fstream>
#include <system_error>

#include "platform/core/build_version.h"
#include "platform/core/text.h"
#include "update_framework/update_module.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

/// Whether the file extends to the end of its section headers, which are last in the file.
bool isWhole(const std::filesystem::path& module) {
    Elf64_Ehdr header{};
    std::ifstream(module, std::ios::binary).read(reinterpret_cast<char*>(&header), sizeof header);
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(module, unknown);
    return !unknown && header.e_shoff != 0 && header.e_shoff <= size &&
           size - header.e_shoff >= std::uintmax_t{header.e_shnum} * header.e_shentsize;
}

}  // namespace

Result<std::optional<StagedUpdate>> runUpdateCycleInModule(const UpdateCycle& cycle) {
    const std::filesystem::path path =
        Bundle::mainBundle().bundlePath() / "Contents" / "Frameworks" / "libTeravolantUpdate.so";
    if (!isWhole(path)) {
        return updaterError(SQRLUpdaterErrorCheckNotPossible,
                            "The bundle's update module " + quoted(path.string()) +
                                " is not whole: install the bundle again.");
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
