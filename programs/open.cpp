// open -a BUNDLE [--args ARGUMENT...]: starts the executable of an application bundle, detached
// from the caller, with these arguments. Does nothing if the user already runs this executable.
//
// Exit status: 0 on success, 1 on failure or on a usage error.

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/core/error.h"
#include "platform/files/file_lock.h"
#include "platform/files/files.h"
#include "platform/system/bundle.h"
#include "platform/system/executable_path.h"
#include "platform/system/process.h"
#include "platform/system/process_list.h"

namespace {

using namespace teravolant::platform;
namespace fs = std::filesystem;

constexpr std::string_view kUsage = "usage: open -a BUNDLE [--args ARGUMENT...]\n";

struct Request {
    fs::path bundle;
    std::vector<std::string> arguments;
};

std::optional<Request> readRequest(const std::vector<std::string>& arguments) {
    if (arguments.size() < 2 || arguments[0] != "-a" ||
        (arguments.size() > 2 && arguments[2] != "--args")) {
        return std::nullopt;
    }
    Request request{.bundle = arguments[1], .arguments = {}};
    if (arguments.size() > 3) {
        request.arguments.assign(arguments.begin() + 3, arguments.end());
    }
    return request;
}

int fail(const fs::path& bundle, std::string_view reason) {
    std::cerr << "open: " + bundle.string() + ": " + std::string(reason) + "\n";
    return EXIT_FAILURE;
}

/// Removes this program's folder from PATH. The launcher puts it there for itself, not for the
/// client.
void removeOwnFolderFromPath() {
    const char* path = std::getenv("PATH");
    const std::string front = executablePathOfThisProcess().parent_path().string() + ":";
    if (path != nullptr && std::string_view(path).starts_with(front)) {
        setenv("PATH", std::string(path + front.size()).c_str(), 1);
    }
}

int openBundle(const Request& request) {
    if (!fileExists(request.bundle)) {
        return fail(request.bundle, "there is no such bundle");
    }
    const auto bundle = Bundle::bundleWithPath(request.bundle);
    if (!bundle) {
        return fail(request.bundle, "not an application bundle: Contents/Info.plist can't be read");
    }
    std::error_code missing;
    const fs::path executable = fs::canonical(bundle->executablePath(), missing);
    std::error_code unknown;
    if (missing || !fs::is_regular_file(executable, unknown) ||
        access(executable.c_str(), X_OK) != 0) {
        return fail(request.bundle,
                    "its executable " + bundle->executablePath().string() + " can't be run");
    }
    // Concurrent calls must not both start the executable. The lock is not on the executable
    // itself, because a file that is open for writing cannot be executed.
    const auto lock = FileLock::acquire(request.bundle / "Contents" / "Info.plist");
    const auto processes = runningProcesses();
    if (processes &&
        std::ranges::count(*processes, executable.native(), &RunningProcess::executable) > 0) {
        return EXIT_SUCCESS;
    }
    removeOwnFolderFromPath();
    if (const auto error = launchDetached(executable, request.arguments)) {
        return fail(request.bundle, error->localizedDescription);
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char* argv[]) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 1 && arguments[0] == "--help") {
        std::cout << kUsage;
        return EXIT_SUCCESS;
    }
    const auto request = readRequest(arguments);
    if (!request) {
        std::cerr << kUsage;
        return EXIT_FAILURE;
    }
    return openBundle(*request);
}
