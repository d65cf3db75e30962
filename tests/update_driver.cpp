// The executable of a test's bundle: Teravolant FEED prints its version, waits for the end of its
// standard input, runs one update cycle with its installation, and prints the result.

#include <iostream>
#include <limits>

#include "platform/files/paths.h"
#include "update_framework/update_cycle.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using platform::Bundle;

int drive(const std::string& feed) {
    const Bundle& bundle = Bundle::mainBundle();
    const auto version = bundle.shortVersion().value_or("none");
    std::cout << version << std::endl;
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());

    ClientUpdater updater{platform::URLRequest{platform::URL(feed + "?" + version)}};
    const auto found = updater.runCycle();
    const auto cache = platform::cachesDirectory() / bundle.bundleIdentifier().value_or("");
    platform::Status error;
    if (!found) {
        error = found.error();
    } else if (*found) {
        error = installStagedUpdate(cache, **found);
    }
    std::cout << (error    ? platform::printedForm(*error)
                  : *found ? "installed " + (*found)->version
                           : "no update")
              << std::endl;
    return error ? 1 : 0;
}

}  // namespace
}  // namespace teravolant

int main(int argc, char** argv) { return teravolant::drive(argc > 1 ? argv[1] : ""); }
