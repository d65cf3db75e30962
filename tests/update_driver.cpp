// The executable of a test's bundle: Teravolant FEED [PATIENCE] prints its version, waits for the
// end of its standard input, runs one update cycle with its installation, and prints the result.
// PATIENCE is the time in milliseconds that a request and the unpacking of an archive may hang.

#include <iostream>
#include <limits>

#include "update_framework/first_starts.h"
#include "update_framework/update_cycle.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using platform::Bundle;

class Updater : public ClientUpdater {
  public:
    Updater(const std::string& feed, int patience)
        : ClientUpdater(platform::URLRequest{platform::URL(feed)}), _patience(patience) {}

  private:
    platform::UpdateCycle makeCycle() override {
        auto cycle = ClientUpdater::makeCycle();
        cycle.transfer = {.connectTimeout = _patience, .stallTimeout = _patience};
        cycle.unpackPatience = _patience;
        return cycle;
    }

    std::chrono::milliseconds _patience;
};

int drive(const std::string& feed, int patience) {
    const Bundle& bundle = Bundle::mainBundle();
    const auto version = bundle.shortVersion().value_or("none");
    std::cout << version << std::endl;
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());

    Updater updater(feed + "?" + version, patience);
    const auto found = updater.runCycle();
    platform::Status error;
    if (!found) {
        error = found.error();
    } else if (*found) {
        error = updater.install(**found);
    }
    std::cout << (error    ? platform::printedForm(*error)
                  : *found ? "installed " + (*found)->version
                           : "no update")
              << std::endl;
    return error ? 1 : 0;
}

}  // namespace
}  // namespace teravolant

int main(int, char** argv) {
    teravolant::platform::beginStart(argv);
    const int status = teravolant::drive(argv[1], argv[2] == nullptr ? 60000 : std::stoi(argv[2]));
    teravolant::platform::endStart();
    return status;
}
