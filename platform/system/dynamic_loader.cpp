#include "platform/system/dynamic_loader.h"

#include <elf.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/system/confined_program.h"
#include "platform/system/limited_program.h"
#include "platform/system/process.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

#if defined(__x86_64__)
constexpr const char* kUsualLoader = "/lib64/ld-linux-x86-64.so.2";
#elif defined(__aarch64__)
constexpr const char* kUsualLoader = "/lib/ld-linux-aarch64.so.1";
#else
#error "Add the path of this machine's dynamic loader."
#endif

int findLoader(dl_phdr_info* program, std::size_t /*size*/, void* result) {
    for (int index = 0; index < program->dlpi_phnum; ++index) {
        const ElfW(Phdr)& segment = program->dlpi_phdr[index];
        if (segment.p_type == PT_INTERP) {
            *static_cast<const char**>(result) =
                reinterpret_cast<const char*>(program->dlpi_addr + segment.p_vaddr);
        }
    }
    return 1;  // The first object is the program itself; ignore the libraries.
}

/// Returns the loader that the kernel started for the running program. A static program has none.
fs::path loaderOfThisProcess() {
    const char* loader = kUsualLoader;
    dl_iterate_phdr(findLoader, static_cast<void*>(&loader));
    return loader;
}

/// Returns the first line of the loader's output that names something missing.
std::string_view complaintIn(std::string_view output) {
    constexpr std::array<std::string_view, 3> kComplaints = {"not found", "undefined symbol",
                                                             "error while loading"};
    while (!output.empty()) {
        std::string_view line = output.substr(0, output.find('\n'));
        output.remove_prefix(std::min(line.size() + 1, output.size()));
        if (std::ranges::any_of(kComplaints, [line](std::string_view complaint) {
                return line.find(complaint) != std::string_view::npos;
            })) {
            line.remove_prefix(std::min(line.find_first_not_of("\t "), line.size()));
            return line;
        }
    }
    return {};
}

/// Whether the loader lacked memory, descriptors or a readable disk.
bool canPass(std::string_view complaint) {
    constexpr std::array<std::string_view, 5> kReasons = {
        "Cannot allocate memory", "failed to map", "cannot map zero-fill", "Too many open files",
        "Input/output error"};
    return std::ranges::any_of(kReasons, [complaint](std::string_view reason) {
        return complaint.find(reason) != std::string_view::npos;
    });
}

/// Removes the file's path where the loader uses it as a label: "PATH: ".
std::string withoutLabel(std::string line, const fs::path& file) {
    const std::string label = file.native() + ": ";
    for (auto at = line.find(label); at != line.npos; at = line.find(label)) {
        line.erase(at, label.size());
    }
    return line;
}

Status failure(std::string_view domain, std::int64_t code, const fs::path& file,
               const std::string& reason) {
    return Error{.domain = std::string(domain),
                 .code = code,
                 .localizedDescription = quoted(file.native()) + " " + reason};
}

Status interrupted(ProgramError::Code code, const fs::path& file, const std::string& reason) {
    return failure(kProgramErrorDomain, code, file,
                   "could not be checked: the dynamic loader " + reason + ".");
}

}  // namespace

Status checkLoadable(const fs::path& elfFile) {
    constexpr std::chrono::seconds kPatience(5);
    const auto loader =
        runLimited(loaderOfThisProcess(), {elfFile.native()},
                   {.patience = kPatience,
                    // The loader then lists the libraries and resolves all symbols, without running
                    // the program. Its exit status is 0 even if something is missing.
                    .environment = {"LD_TRACE_LOADED_OBJECTS=1", "LD_BIND_NOW=1", "LD_WARN=yes"}});
    if (!loader) {
        return loader.error();
    }
    if (loader->timedOut) {
        return interrupted(ProgramError::hung, elfFile,
                           "did not end within " + std::to_string(kPatience.count()) + " seconds");
    }
    if (loader->signal != 0 && !isFaultSignal(loader->signal)) {
        return interrupted(ProgramError::killed, elfFile,
                           "was killed by signal " + std::to_string(loader->signal));
    }
    std::string_view complaint = complaintIn(loader->output);
    if (complaint.empty() && loader->exitStatus == 0) {
        return std::nullopt;
    }
    if (canPass(complaint)) {
        return interrupted(ProgramError::killed, elfFile, "failed: " + escaped(complaint));
    }
    if (complaint.empty()) {
        complaint = loader->output.empty() ? "the dynamic loader crashed" : loader->output.c_str();
    }
    return failure(NSCocoaErrorDomain, NSExecutableNotLoadableError, elfFile,
                   "can't be loaded: " + escaped(withoutLabel(std::string(complaint), elfFile)));
}

}  // namespace teravolant::platform
