// The executable of a bundle that measures its own update: runs one cycle, from the feed to the
// staged bundle, and prints the seconds that it took and the process's peak resident memory in MiB.
//
// Usage: Teravolant FEED

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "updater/client_updater.h"

namespace {

using namespace teravolant;

class MeasuredUpdater : public ClientUpdater {
  public:
    using ClientUpdater::ClientUpdater;
    using ClientUpdater::runLocked;
};

}  // namespace

int main(int argc, char* argv[]) {
    const auto version =
        platform::Bundle::mainBundle().textForInfoDictionaryKey("CFBundleShortVersionString");
    const std::string feed =
        std::string(argc > 1 ? argv[1] : "") + "?version=" + version.value_or("");
    MeasuredUpdater updater{platform::URLRequest{std::optional(platform::URL(feed))}};

    const auto start = std::chrono::steady_clock::now();
    const auto staged = updater.runLocked();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    if (!staged || !staged.value()) {
        std::fputs(staged ? "no update\n" : printedForm(staged.error()).append("\n").c_str(),
                   stderr);
        return EXIT_FAILURE;
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    constexpr double kKibibytesInMebibyte = 1024;
    std::printf("%.3f %.1f\n", taken.count(),
                static_cast<double>(usage.ru_maxrss) / kKibibytesInMebibyte);
    return EXIT_SUCCESS;
}
