#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/version.h"
#include "platform/crypto/encodings.h"
#include "platform/system/dynamic_loader.h"
#include "platform/system/executable_file.h"
#include "platform/system/limited_program.h"
#include "platform/system/process.h"
#include "programs/selfcheck.h"
#include "update_framework/bundle_parts.h"
#include "update_framework/installation.h"
#include "update_framework/updater_error.h"

// The checks of what the bundle and the system consist of.
namespace teravolant::selfcheck {
namespace {

namespace fs = std::filesystem;
using platform::Bundle;
using platform::quoted;

/// Returns nothing if the program is complete and the loader finds what it needs.
std::optional<Outcome> fault(const Bundle& bundle, const fs::path& program) {
    const std::string name = program.filename();
    if (const auto error = platform::checkProgram(bundle.bundlePath(), program)) {
        const bool isFault =
            platform::isUpdaterError(*error, platform::SQRLUpdaterErrorRefusedBundle);
        return isFault ? failed(name, *error) : unclear(name + ": " + error->localizedDescription);
    }
    // A script is a program, too, but not one of this bundle.
    const auto format = platform::checkedFormatOf(program);
    if (format && *format != platform::FileFormat::Elf) {
        return failed(name + ": it is not a native program");
    }
    if (const auto error = platform::checkLoadable(program)) {
        return failed(name, *error);
    }
    return std::nullopt;
}

std::string endOf(const platform::EndedProgram& program) {
    if (program.signal != 0) {
        return "was killed by signal " + std::to_string(program.signal) + " (" +
               strsignal(program.signal) + ")";
    }
    return "ends with status " + std::to_string(program.exitStatus.value_or(-1)) +
           " when it is started for a test";
}

/// Starts the program for a test. `status` is the exit status of a sound program.
Outcome startOf(const fs::path& program, const std::vector<std::string>& arguments, int status) {
    const std::string name = program.filename();
    constexpr std::chrono::seconds kPatience(6);
    const auto ended = platform::runLimited(
        program, arguments,
        {.patience = kPatience,  // The launcher then ends at once (launcher/main.cpp).
         .environment = platform::ownEnvironmentWith({"TERAVOLANT_SELFCHECK=1"})});
    if (!ended) {
        return unclear(name + ": " + ended.error().localizedDescription);
    }
    if (!ended->exitStatus && !platform::isFaultSignal(ended->signal)) {
        return unclear(name + ": it did not end within " + std::to_string(kPatience.count()) +
                       " seconds, or was killed");
    }
    return ended->exitStatus == status ? ok(name + ": complete, and starts")
                                       : failed(name + ": it " + endOf(*ended));
}

bool isOnPath(const std::string& command) {
    const char* const path = std::getenv("PATH");
    std::string_view rest = path != nullptr && *path != '\0' ? path : "/usr/bin:/bin";
    while (!rest.empty()) {
        const std::string_view folder = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(folder.size() + 1, rest.size()));
        if (access((fs::path(folder) / command).c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

Outcome checkInformation(const Bundle& bundle) {
    const auto identifier = bundle.bundleIdentifier();
    const auto version = bundle.shortVersion();
    if (!identifier && !version) {
        return failed("Info.plist: it is missing or can't be read");
    }
    if (!identifier || identifier->empty()) {
        return failed("Info.plist: it has no CFBundleIdentifier");
    }
    if (!version || !platform::versionIn(*version)) {
        return failed("Info.plist: its version is " +
                      (version ? quoted(*version) : std::string("missing")) +
                      ", not four numbers like 1.0.0.1");
    }
    return ok("Info.plist: version " + *version + " of " + *identifier);
}

Outcome checkPlace(const Bundle& bundle) {
    const std::string path = bundle.bundlePath();
    return path.find_first_of(" ':\n") == std::string::npos
               ? ok("place: " + path)
               : failedHere(
                     "place: the path " + quoted(path) +
                     " has a blank, an apostrophe, a colon or a line break: the launcher can't "
                     "run its commands from there");
}

Outcome checkKeys(const Bundle& bundle) {
    constexpr std::size_t kKeySize = 32;
    const auto keys = platform::installationOf(bundle).publicKeys;
    for (const std::string& key : keys) {
        const auto bytes = platform::base64Decoded(key);
        if (!bytes || bytes->size() != kKeySize) {
            return failed("keys: " + quoted(key) + " is not a public key of 32 bytes in Base64");
        }
    }
    return keys.empty() ? failed("keys: Info.plist has no public key: no update could be trusted")
                        : ok("keys: " + std::to_string(keys.size()) +
                             (keys.size() == 1 ? " public key" : " public keys"));
}

const std::vector<Probe>& probes() {
    constexpr int kUsageError = 2;
    static const std::vector<Probe> all = {
        {.name = "open", .arguments = {"--help"}},
        {.name = "launchctl", .arguments = {"--help"}},
        {.name = "ps", .arguments = {"-ax", "-o", "exe="}},
        {.name = "fetch", .arguments = {}, .status = kUsageError},
        {.name = "unpack", .arguments = {}, .status = kUsageError},
        {.name = "update", .arguments = {"--help"}},
    };
    return all;
}

Outcome checkHelper(const Bundle& bundle, const Probe& probe) {
    const fs::path program = bundle.helpersPath() / probe.name;
    auto outcome = fault(bundle, program);
    return outcome ? *std::move(outcome) : startOf(program, probe.arguments, probe.status);
}

Outcome checkSelf(const Bundle& bundle) {
    auto outcome = fault(bundle, bundle.helpersPath() / "selfcheck");
    return outcome ? *std::move(outcome) : ok("selfcheck: complete");
}

Outcome checkLauncher(const Bundle& bundle) {
    // The client restarts the launcher by its second name.
    const fs::path& launcher = bundle.executablePath();
    for (const fs::path& program : {launcher, launcher.parent_path() / "teravolant"}) {
        if (auto outcome = fault(bundle, program)) {
            return *std::move(outcome);
        }
    }
    return startOf(launcher, {}, EXIT_SUCCESS);
}

Outcome checkCommands() {
    constexpr std::array kCommands = {"tar", "gzip", "grep", "awk", "rm", "mkdir"};
    std::string missing = access("/bin/sh", X_OK) == 0 ? "" : " /bin/sh";
    for (const char* command : kCommands) {
        missing += isOnPath(command) ? "" : std::string(" ") + command;
    }
    return missing.empty() ? ok("commands: sh, tar, gzip, grep, awk, rm and mkdir")
                           : failedHere("commands: not found on PATH:" + missing);
}

Outcome checkAgents(const Bundle& bundle) {
    const auto error = platform::checkAgents(bundle.bundlePath());
    return error ? failed("launch agents", *error) : ok("launch agents: agent and autorun");
}

}  // namespace teravolant::selfcheck
