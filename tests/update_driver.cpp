// The executable of the bundles that the tests of whole updates run: one update cycle and its
// installation, on the main thread and without the timer. It says its version first and waits for
// its standard input to end; then it says what came of it.
//
// Usage: Teravolant FEED

#include <iostream>
#include <limits>

#include "platform/files.h"
#include "platform/update_framework/update_cycle.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using platform::Bundle;
using platform::Result;
using platform::StagedUpdate;

class DrivenUpdater : public ClientUpdater {
  public:
    using ClientUpdater::ClientUpdater;
    using ClientUpdater::runLocked;

  protected:
    /// Without the module, which would only be looked for in the bundle.
    Result<std::optional<StagedUpdate>> runCycle(const platform::UpdateCycle& cycle) override {
        return runUpdateCycle(cycle);
    }
};

int drive(const std::string& feed) {
    const Bundle& bundle = Bundle::mainBundle();
    const auto version = bundle.shortVersion().value_or("none");
    std::cout << version << std::endl;
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());

    DrivenUpdater updater{platform::URLRequest{std::optional(platform::URL(feed + "?" + version))}};
    const auto found = updater.runLocked();
    const auto cache = platform::cachesDirectory() / bundle.bundleIdentifier().value_or("");
    const auto error = !found          ? std::optional(found.error())
                       : found.value() ? installStagedUpdate(cache, *found.value())
                                       : std::nullopt;
    std::cout << (error           ? printedForm(*error)
                  : found.value() ? "installed " + found.value()->version
                                  : "no update")
              << std::endl;
    return error ? 1 : 0;
}

}  // namespace
}  // namespace teravolant

int main(int argc, char** argv) { return teravolant::drive(argc > 1 ? argv[1] : ""); }
