// `selfcheck` belongs to the new bundle. Its verdict is its exit status together with the last line
// of its output, so a broken program that exits with status 0 has not passed. It gets the user's
// environment with a temporary home. The user's preferences stay readable, because they can name
// another feed.
#include "update_framework/validation.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/files/private_directory.h"
#include "platform/system/confined_program.h"
#include "platform/system/dynamic_loader.h"
#include "platform/system/limited_program.h"
#include "platform/system/process.h"
#include "update_framework/bundle_parts.h"
#include "update_framework/staging.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kPatience(10);
constexpr const char* kHome = ".home";

Status refusedBundle(const std::string& reason) {
    return updaterError(SQRLUpdaterErrorRefusedBundle, "The bundle is refused: " + reason);
}

std::string lastLineOf(std::string_view output) {
    output = output.substr(0, output.find_last_not_of('\n') + 1);
    return std::string(output.substr(output.rfind('\n') + 1));
}

/// Returns an error that can pass by itself.
Status notChecked(ProgramError::Code code, const std::string& reason) {
    return Error{.domain = std::string(kProgramErrorDomain),
                 .code = code,
                 .localizedDescription = "The bundle could not be checked: " + reason};
}

/// Returns the error of a program that did not report success.
Status failureOf(const EndedProgram& ended) {
    const std::string program = "its program “selfcheck” ";
    if (ended.timedOut) {
        return notChecked(ProgramError::hung, program + "did not end within " +
                                                  std::to_string(kPatience.count()) + " seconds.");
    }
    if (!ended.exitStatus) {
        const std::string what =
            program + "was killed by signal " + std::to_string(ended.signal) + ".";
        return isFaultSignal(ended.signal) ? refusedBundle(what)
                                           : notChecked(ProgramError::killed, what);
    }
    constexpr std::string_view kFailed = "selfcheck: failed: ";
    constexpr std::string_view kUnclear = "selfcheck: unclear: ";
    constexpr std::string_view kFailedHere = "selfcheck: failed here: ";
    const std::string last = lastLineOf(ended.output);
    for (const std::string_view verdict : {kUnclear, kFailedHere}) {
        if (last.starts_with(verdict)) {
            return notChecked(ProgramError::hung, escaped(last.substr(verdict.size())));
        }
    }
    return refusedBundle(last.starts_with(kFailed)
                             ? escaped(last.substr(kFailed.size()))
                             : program + "ended with status " + std::to_string(*ended.exitStatus) +
                                   ". Its last line: " + quoted(escaped(last)));
}

Status checkLoading(const fs::path& bundle) {
    const auto files = elfFilesIn(bundle);
    if (!files) {
        return files.error();
    }
    for (const fs::path& file : *files) {
        if (auto error = checkLoadable(file)) {
            return error->code == NSExecutableNotLoadableError
                       ? refusedBundle(error->localizedDescription)
                       : error;
        }
    }
    return std::nullopt;
}

}  // namespace

Status runSelfCheck(const fs::path& bundle, const std::vector<std::string>& arguments,
                    const fs::path& home) {
    const fs::path program = bundle / "Contents" / "Helpers" / "selfcheck";
    if (auto error = checkProgram(bundle, program)) {
        return error;
    }
    (void)removeTree(home);
    if (const int failure = createPrivateDirectory(home)) {
        return errorFromErrno(failure, FileAccess::Write,
                              "The folder " + quoted(home.string()) + " could not be created");
    }
    const auto ended =
        runLimited(program, arguments,
                   {.patience = kPatience,
                    .environment = ownEnvironmentWith(
                        {"HOME=" + home.string(), "TMPDIR=" + home.string(),
                         "XDG_CACHE_HOME=" + home.string(), "XDG_DATA_HOME=" + home.string(),
                         "XDG_CONFIG_HOME=" + configurationDirectory().string()}),
                    .writableFolder = home});
    (void)removeTree(home);
    if (!ended) {
        return ended.error();
    }
    const bool isPassed =
        ended->exitStatus == 0 && lastLineOf(ended->output) == "selfcheck: passed";
    return isPassed ? Status() : failureOf(*ended);
}

Status validateBundle(const fs::path& bundle, const fs::path& folder) {
    auto error = checkLoading(bundle);
    return error ? error : runSelfCheck(bundle, {}, folder / kHome);
}

Status checkInPlace(const fs::path& bundle) {
    return runSelfCheck(bundle, {"--offline"}, stagingFolderFor(bundle) / kHome);
}

bool isBadBundle(const Error& error) {
    return isUpdaterError(error, SQRLUpdaterErrorRefusedBundle);
}

}  // namespace teravolant::platform
