// The program is started from the bundle itself and not from an unpacked copy: /tmp, where a copy
// would be, may be mounted with noexec.
#include "tools/local_check.h"

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/system/limited_program.h"
#include "tools/output.h"
#include "tools/private_folder.h"

namespace teravolant::release {
namespace {

namespace fs = std::filesystem;
using platform::quoted;
using platform::Status;

std::vector<std::string> environmentWithHome(const std::string& home) {
    std::vector<std::string> environment = {"PATH=/usr/bin:/bin",      "HOME=" + home,
                                            "TMPDIR=" + home,          "XDG_CACHE_HOME=" + home,
                                            "XDG_CONFIG_HOME=" + home, "XDG_DATA_HOME=" + home};
    for (const char* name : {"SSL_CERT_FILE", "SSL_CERT_DIR"}) {
        if (const char* value = std::getenv(name)) {
            environment.push_back(std::string(name) + "=" + value);
        }
    }
    return environment;
}

std::string lastLineOf(std::string_view output) {
    output = output.substr(0, output.find_last_not_of('\n') + 1);
    return std::string(output.substr(output.rfind('\n') + 1));
}

std::string endOf(const platform::EndedProgram& ended, std::chrono::seconds patience) {
    if (ended.timedOut) {
        return "did not end within " + std::to_string(patience.count()) + " s.";
    }
    if (!ended.exitStatus) {
        return "was killed by signal " + std::to_string(ended.signal) + ".";
    }
    return "ended with status " + std::to_string(*ended.exitStatus) +
           ". Its last line: " + quoted(platform::escaped(lastLineOf(ended.output)));
}

}  // namespace

Status checkRunsHere(const fs::path& bundle, std::chrono::seconds patience) {
    std::error_code unresolved;
    const fs::path program =
        fs::canonical(bundle, unresolved) / "Contents" / "Helpers" / "selfcheck";
    const std::string what = "The bundle is refused: its program " + quoted(program.string()) + " ";
    if (!fs::is_regular_file(program, unresolved)) {
        return refused(what + "is missing: the build is incomplete.");
    }
    const auto home = PrivateFolder::create();
    if (!home) {
        return home.error();
    }
    const auto ended = platform::runLimited(program, {"--offline"},
                                            {.patience = patience,
                                             .environment = environmentWithHome(home->path()),
                                             .writableFolder = home->path()});
    if (!ended) {
        return refused(what + "can't be started: " + ended.error().localizedDescription);
    }
    const bool isPassed =
        ended->exitStatus == 0 && lastLineOf(ended->output) == "selfcheck: passed";
    return isPassed ? Status() : refused(what + endOf(*ended, patience));
}

}  // namespace teravolant::release
