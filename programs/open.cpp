// open -a BUNDLE [--args ARGUMENT...]: starts the executable of an application bundle, detached
// from the caller, with these arguments. Does nothing if the user already runs this executable.
//
// Writes the reason of a failure to standard error. In a desktop session it also shows a
// notification, because the desktop discards the standard error of a program that it starts.
//
// Exit status: 0 on success, 1 on failure or on a usage error.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/file_lock.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/system/bundle.h"
#include "platform/system/executable_file.h"
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
    if (!request.bundle.has_filename()) {
        request.bundle = request.bundle.parent_path();
    }
    if (arguments.size() > 3) {
        request.arguments.assign(arguments.begin() + 3, arguments.end());
    }
    return request;
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

/// Returns a lock that only this user can take, or an error: a start then goes on without a lock.
Result<FileLock> lockStarts() {
    const fs::path folder = applicationSupportDirectory() / "Zelto" / "Teravolant App";
    (void)createDirectory(folder);
    return FileLock::acquire(folder / "open.lock");
}

Status unusable(const fs::path& bundle, std::string_view reason) {
    return Error{.domain = std::string(NSCocoaErrorDomain),
                 .code = NSFileReadUnknownError,
                 .localizedDescription = bundle.string() + ": " + std::string(reason)};
}

Status openBundle(const Request& request) {
    if (!fileExists(request.bundle)) {
        return unusable(request.bundle, "there is no such bundle");
    }
    const auto bundle = Bundle::bundleWithPath(request.bundle);
    if (!bundle) {
        return unusable(request.bundle,
                        "not an application bundle: Contents/Info.plist can't be read");
    }
    std::error_code missing;
    const fs::path executable = fs::canonical(bundle->executablePath(), missing);
    if (missing) {
        return readError(missing.value(), bundle->executablePath().native());
    }
    // Concurrent calls must not both start the executable.
    const auto lock = lockStarts();
    const auto processes = runningProcesses();
    if (processes &&
        std::ranges::count(*processes, executable.native(), &RunningProcess::executable) > 0) {
        return std::nullopt;
    }
    if (auto error = checkExecutable(executable)) {
        return error;
    }
    removeOwnFolderFromPath();
    return launchDetached(executable, request.arguments);
}

/// Returns the text as one line of valid UTF-8.
std::string displayed(std::string text) {
    const bool isText = isValidUtf8(text);
    std::ranges::replace_if(
        text,
        [isText](unsigned char byte) {
            return byte < ' ' || byte == 0x7F || (!isText && byte > 0x7F);
        },
        '?');
    return text;
}

std::string replaced(std::string_view text,
                     std::initializer_list<std::pair<char, std::string_view>> replacements) {
    std::string result;
    for (const char character : text) {
        const auto* const found =
            std::ranges::find(replacements, character, &std::pair<char, std::string_view>::first);
        result += found != replacements.end() ? found->second : std::string_view(&character, 1);
    }
    return result;
}

/// Returns the text as a string in the notation of GVariant.
std::string variantText(std::string_view text) {
    return "'" + replaced(text, {{'\\', "\\\\"}, {'\'', "\\'"}}) + "'";
}

bool isDesktopSession() {
    return std::ranges::any_of(std::array{"DISPLAY", "WAYLAND_DISPLAY"}, [](const char* name) {
        const char* const value = std::getenv(name);
        return value != nullptr && *value != '\0';
    });
}

/// Shows a notification if there is a program for it. Does not wait for that program, because the
/// notification service may hang.
void notify(const std::string& summary, const std::string& reason) {
    const std::string body = replaced(reason, {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}});
    // notify-send interprets backslashes in the body, but not in the summary.
    if (launchDetached("notify-send", {"--app-name=Teravolant", "--icon=dialog-error", "--",
                                       summary, replaced(body, {{'\\', "\\\\"}})})) {
        (void)launchDetached(
            "gdbus", {"call", "--session", "--dest=org.freedesktop.Notifications",
                      "--object-path=/org/freedesktop/Notifications",
                      "--method=org.freedesktop.Notifications.Notify", "'Teravolant'", "uint32 0",
                      "'dialog-error'", variantText(summary), variantText(body), "@as []",
                      "@a{sv} {}", "int32 -1"});
    }
}

void report(const fs::path& bundle, const Error& error) {
    const std::string reason = displayed(error.localizedDescription);
    std::cerr << "open: " + reason + "\n";
    if (isDesktopSession()) {
        notify(quoted(displayed(bundle.stem().native())) + " could not be opened", reason);
    }
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
    if (const auto error = openBundle(*request)) {
        report(request->bundle, *error);
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
