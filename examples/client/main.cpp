// The sample client: one instance per user. It logs every command line. A second start sends its
// arguments to the running instance and exits. On `--needrestart ApplyReleasesWaiting` the running
// instance becomes the launcher, whose path it got with `-unpackapp` when it was opened.

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>

#include "examples/client/instance.h"
#include "platform/core/error.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"

namespace {

using namespace teravolant::client;
using teravolant::platform::applicationSupportDirectory;
using teravolant::platform::createDirectory;

/// Returns the argument after the option, if any.
std::optional<std::string> valueOf(const std::string& option, const Arguments& arguments) {
    const auto found = std::find(arguments.begin(), arguments.end(), option);
    if (found == arguments.end() || found + 1 == arguments.end()) {
        return std::nullopt;
    }
    return *(found + 1);
}

/// Replaces this process by the launcher, so that the launcher finds no running client. Returns
/// only on failure.
void becomeLauncher(const std::string& launcher) {
    execl(launcher.c_str(), launcher.c_str(), static_cast<char*>(nullptr));
}

int fail(const teravolant::platform::Error& error) {
    std::cerr << "teravolant: " << error.localizedDescription << "\n";
    return EXIT_FAILURE;
}

/// Serves commands until the instance ends; returns the exit status.
int serve(Instance& instance, const CommandLog& log, const Arguments& ownArguments) {
    const auto launcher = valueOf("-unpackapp", ownArguments);
    Arguments arguments = ownArguments;
    while (true) {
        log.append(arguments);
        if (valueOf("--needrestart", arguments) == "ApplyReleasesWaiting") {
            if (launcher) {
                becomeLauncher(*launcher);
            }
            std::cerr << "teravolant: the launcher could not be started\n";
            return EXIT_FAILURE;
        }
        auto next = instance.waitForArguments();
        if (!next) {
            std::cerr << "teravolant: the pipe for commands could not be read\n";
            return EXIT_FAILURE;
        }
        arguments = *std::move(next);
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    const Arguments arguments(argv + 1, argv + argc);
    const auto folder = applicationSupportDirectory() / "Zelto" / "Teravolant Client";
    if (const auto error = createDirectory(folder)) {
        return fail(*error);
    }
    auto joined = Instance::join(folder, arguments);
    if (!joined) {
        return fail(joined.error());
    }
    auto instance = *std::move(joined);
    if (!instance) {
        return EXIT_SUCCESS;
    }
    const CommandLog log(folder / "client.log");
    return serve(*instance, log, arguments);
}
