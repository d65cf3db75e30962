// The sample client: one instance per user. It logs every command line. A second start sends its
// arguments to the running instance and exits. On `--needrestart ApplyReleasesWaiting` the running
// instance becomes the launcher, whose path it got with `-unpackapp` when it was opened. On
// `--quit` it exits.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
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

bool isGiven(const std::string& option, const Arguments& arguments) {
    return std::find(arguments.begin(), arguments.end(), option) != arguments.end();
}

/// Whether this process may become the instance. The launcher waits for a process that only
/// delivers a command, so that process must not. The arguments do not tell the two apart:
/// `-unpackapp` is missing if the launcher's own arguments are too long. `open` starts the leader
/// of a session, the launcher's shell does not.
bool mayServe() { return getsid(0) == getpid(); }

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
        if (isGiven("--quit", arguments)) {
            return EXIT_SUCCESS;
        }
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

/// Sends the arguments to the running instance; returns the exit status.
int deliver(const std::filesystem::path& folder, const Arguments& arguments) {
    // `open` may have started the instance an instant ago.
    constexpr std::chrono::seconds kPatience(1);
    const bool quits = isGiven("--quit", arguments);
    const auto received =
        Instance::command(folder, arguments, quits ? std::chrono::seconds(0) : kPatience);
    if (!received) {
        return fail(received.error());
    }
    if (!*received && !quits) {
        std::cerr << "teravolant: no instance runs; setsid or open starts one\n";
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char* argv[]) {
    const Arguments arguments(argv + 1, argv + argc);
    const auto folder = applicationSupportDirectory() / "Zelto" / "Teravolant Client";
    if (const auto error = createDirectory(folder)) {
        return fail(*error);
    }
    if (!mayServe() || isGiven("--quit", arguments)) {
        return deliver(folder, arguments);
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
