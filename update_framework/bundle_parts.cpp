#include "update_framework/bundle_parts.h"

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/paths.h"
#include "platform/system/executable_file.h"
#include "platform/values/property_list.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

std::string nameOf(const fs::path& bundle, const fs::path& item) {
    return quoted(item.lexically_relative(bundle.parent_path()).string());
}

Status refused(const fs::path& bundle, const fs::path& item, const std::string& reason) {
    return updaterError(SQRLUpdaterErrorRefusedBundle, nameOf(bundle, item) + " " + reason);
}

/// Returns the error of `checkedFormatOf` with the item's name in the place of its path.
Status refusedFormat(const fs::path& bundle, const fs::path& item, const Error& error) {
    const bool isPermanent = error.code == NSExecutableNotLoadableError ||
                             error.code == NSExecutableArchitectureMismatchError ||
                             error.code == NSFileReadNoPermissionError;
    const std::string path = quoted(item.native());
    if (!isPermanent || !error.localizedDescription.starts_with(path)) {
        return error;
    }
    return updaterError(SQRLUpdaterErrorRefusedBundle,
                        nameOf(bundle, item) + error.localizedDescription.substr(path.size()));
}

}  // namespace

Status checkProgram(const fs::path& bundle, const fs::path& program) {
    std::error_code missing;
    const fs::path real = fs::canonical(program, missing);
    if (missing || !isInside(real, fs::canonical(bundle, missing)) || !fs::is_regular_file(real)) {
        return refused(bundle, program, "is missing: the build is incomplete.");
    }
    const auto permissions = fs::status(real, missing).permissions();
    if ((permissions & fs::perms::owner_exec) == fs::perms::none) {
        return refused(bundle, program, "is not executable.");
    }
    const auto format = checkedFormatOf(program);
    if (!format) {
        return refusedFormat(bundle, program, format.error());
    }
    return *format != FileFormat::Other
               ? Status()
               : refused(bundle, program, "can't run: it is not a program.");
}

Status checkAgents(const fs::path& bundle) {
    for (const std::string label : {"com.zelto.teravolant.agent", "com.zelto.teravolant.autorun"}) {
        const fs::path file = bundle / "Contents" / "Resources" / (label + ".plist");
        const auto agent = dictionaryInFile(file);
        if (!agent && agent.error().code == NSFileReadUnknownError) {
            return agent.error();
        }
        const auto entry = agent ? agent->find("Label") : Value::Dictionary::const_iterator();
        if (!agent || entry == agent->end() || entry->second != Value(label)) {
            return refused(bundle, file,
                           "is missing or is not the launch agent " + label +
                               ": computers would not check for updates.");
        }
    }
    return std::nullopt;
}

Result<std::vector<fs::path>> elfFilesIn(const fs::path& bundle) {
    std::vector<fs::path> files;
    std::error_code failure;
    for (fs::recursive_directory_iterator walk(bundle, failure), end; !failure && walk != end;
         walk.increment(failure)) {
        // An item whose status can't be read is opened, which fails as well.
        std::error_code unknown;
        const auto kind = walk->symlink_status(unknown).type();
        if (!unknown && kind != fs::file_type::regular) {
            continue;
        }
        const auto format = checkedFormatOf(walk->path());
        if (!format) {
            return refusedFormat(bundle, walk->path(), format.error());
        }
        if (*format == FileFormat::Elf) {
            files.push_back(walk->path());
        }
    }
    if (failure) {
        return readError(failure.value(), bundle.native());
    }
    return files;
}

}  // namespace teravolant::platform
