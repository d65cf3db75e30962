// open -a BUNDLE [--args WORD...]: starts the executable of an application bundle, detached from
// the caller, with those words as its arguments. Where that executable runs already for this user,
// nothing is started.

#include <unistd.h>

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

namespace {

using namespace teravolant::platform;
namespace fs = std::filesystem;

constexpr std::string_view kUsage = "usage: open -a BUNDLE [--args WORD...]\n";

struct Request {
    fs::path bundle;
    std::vector<std::string> arguments;
};

std::optional<Request> readRequest(const std::vector<std::string>& words) {
    if (words.size() < 2 || words[0] != "-a" || (words.size() > 2 && words[2] != "--args")) {
        return std::nullopt;
    }
    Request request{.bundle = words[1], .arguments = {}};
    if (words.size() > 3) {
        request.arguments.assign(words.begin() + 3, words.end());
    }
    return request;
}

int fail(const fs::path& bundle, std::string_view reason) {
    std::cerr << "open: " + bundle.string() + ": " + std::string(reason) + "\n";
    return EXIT_FAILURE;
}

/// The launcher puts the folder of this program first on its PATH, which is not for the client.
void takeOwnFolderOffPath() {
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
    // Two calls at the same time must not both find that nothing runs. The executable itself can't
    // be the lock: what is open for writing can't be executed.
    const auto lock = FileLock::acquire(request.bundle / "Contents" / "Info.plist");
    if (!processesRunning(executable).empty()) {
        return EXIT_SUCCESS;
    }
    takeOwnFolderOffPath();
    if (const auto error = launchDetached(executable, request.arguments)) {
        return fail(request.bundle, error->localizedDescription);
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char* argv[]) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 1 && words[0] == "--help") {
        std::cout << kUsage;
        return EXIT_SUCCESS;
    }
    const auto request = readRequest(words);
    if (!request) {
        std::cerr << kUsage;
        return EXIT_FAILURE;
    }
    return openBundle(*request);
}
