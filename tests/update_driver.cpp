// The executable of the bundles that the tests of whole updates run: one update cycle and its
// installation, on the main thread and without the timer. It says its version first and waits for
// its standard input to end; then it says what came of it.
//
// Usage: Teravolant FEED

#include <iostream>
#include <limits>

#include "platform/files/paths.h"
#include "update_framework/module/run_update_cycle.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using platform::Bundle;

int drive(const std::string& feed) {
    const Bundle& bundle = Bundle::mainBundle();
    const auto version = bundle.shortVersion().value_or("none");
    std::cout << version << std::endl;
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());

    ClientUpdater updater{platform::URLRequest{platform::URL(feed + "?" + version)},
                          platform::runUpdateCycle};
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
