// Runs one part of the launcher, so that it can be timed. "update" and "match" need an executable
// in a bundle.
//
// Usage: work update FEED     runs an update cycle, from the feed to the staged bundle
//        work digest FILE     prints the digest of a file
//        work match FOLDER    searches for an update of the running bundle, must find none
//        work log COUNT       writes log entries
//        work append FILE COUNT      writes as many bytes as COUNT log entries, with open, write
//                                  and close
//        work versions LENGTH COUNT  compares versions of LENGTH bytes

#include <cstdio>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "support/logger.h"
#include "support/standby/crypto.h"
#include "update_framework/validation.h"
#include "updater/client_updater.h"
#include "updater/version_numbers.h"

namespace {

using namespace teravolant;

constexpr std::string_view kEntry = "[ClientUpdater::startChecksImmediately] do CheckUpdate";
constexpr std::string_view kStampedEntry =
    "2026-01-01 00:00:00: [ClientUpdater::startChecksImmediately] do CheckUpdate\n";

int fail(const platform::Error& error) {
    std::fputs(printedForm(error).append("\n").c_str(), stderr);
    return EXIT_FAILURE;
}

int update(const std::string& feed) {
    const auto version = platform::Bundle::mainBundle().shortVersion();
    ClientUpdater updater{
        platform::URLRequest{platform::URL(feed + "?version=" + version.value_or(""))}};
    const auto staged = updater.runCycle();
    if (!staged) {
        return fail(staged.error());
    }
    return *staged ? EXIT_SUCCESS : EXIT_FAILURE;
}

int validate(const std::string& bundle, const std::string& folder) {
    const auto error = platform::validateBundle(bundle, folder);
    return error ? fail(*error) : EXIT_SUCCESS;
}

int digest(const std::string& file) {
    const auto found = Crypto::MD5HashOfFile(file);
    return found && std::puts(found->c_str()) >= 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int match(const std::string& folder) {
    const ClientUpdater updater{platform::URLRequest{}};
    const auto found =
        updater.updateBundleMatchingCurrentApplicationInDirectory(folder).subscribe();
    return found ? EXIT_FAILURE : EXIT_SUCCESS;
}

int log(int count) {
    Logger& logger = Logger::sharedInstance();
    for (int entry = 0; entry < count; ++entry) {
        logger.logMessage(kEntry);
    }
    return EXIT_SUCCESS;
}

int append(const char* path, int count) {
    for (int entry = 0; entry < count; ++entry) {
        const int file = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
        if (file < 0 || write(file, kStampedEntry.data(), kStampedEntry.size()) < 0) {
            return EXIT_FAILURE;
        }
        close(file);
    }
    return EXIT_SUCCESS;
}

int versions(std::size_t length, int count) {
    // The separator is almost the whole version, and the parser must read all of it.
    const auto version = [length](const std::string& build) {
        return "1.2.3" + std::string(length - 5 - build.size(), '-') + build;
    };
    const std::string current = version("1");
    const std::string offered = version("2");
    for (int comparison = 0; comparison < count; ++comparison) {
        ClientUpdater::ErrorSlot error;
        if (!isVersionNewer(current, offered, error)) {
            return fail(*error);
        }
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char* argv[]) {
    // As the launcher of a bundle, it is started by `selfcheck`.
    if (std::getenv("TERAVOLANT_SELFCHECK") != nullptr) {
        return EXIT_SUCCESS;
    }
    const auto argument = [&](int index) { return std::string(index < argc ? argv[index] : ""); };
    const std::string work = argument(1);
    return work == "update"     ? update(argument(2))
           : work == "validate" ? validate(argument(2), argument(3))
           : work == "digest"   ? digest(argument(2))
           : work == "match"    ? match(argument(2))
           : work == "log"      ? log(std::stoi(argument(2)))
           : work == "append"   ? append(argv[2], std::stoi(argument(3)))
           : work == "versions" ? versions(std::stoul(argument(2)), std::stoi(argument(3)))
                                : EXIT_FAILURE;
}
