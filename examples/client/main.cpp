// The sample client: one instance per user. Every command line is logged; a second start hands its
// words to the running instance and exits at once; told that a release waits, the running instance
// becomes the launcher, by the path that it got when it was opened.

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "examples/client/instance.h"
#include "platform/core/error.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"

namespace {

using namespace teravolant::client;
using teravolant::platform::applicationSupportDirectory;
using teravolant::platform::createDirectory;

std::optional<std::string> wordBehind(const Words& words, const std::string& option) {
    const auto found = std::find(words.begin(), words.end(), option);
    if (found == words.end() || found + 1 == words.end()) {
        return std::nullopt;
    }
    return *(found + 1);
}

/// Leaves this process to the launcher, so that no client runs any more when that looks for one.
void becomeLauncher(const std::string& launcher) {
    execl(launcher.c_str(), launcher.c_str(), static_cast<char*>(nullptr));
}

int fail(const teravolant::platform::Error& error) {
    std::cerr << "teravolant: " << error.localizedDescription << "\n";
    return EXIT_FAILURE;
}

int serve(Instance& instance, const CommandLog& log, const Words& ownWords) {
    const auto launcher = wordBehind(ownWords, "-unpackapp");
    Words words = ownWords;
    while (true) {
        log.append(words);
        if (wordBehind(words, "--needrestart") == "ApplyReleasesWaiting") {
            if (launcher) {
                becomeLauncher(*launcher);
            }
            std::cerr << "teravolant: the launcher can't be started again\n";
            return EXIT_FAILURE;
        }
        auto next = instance.waitForWords();
        if (!next) {
            std::cerr << "teravolant: the pipe for commands can't be read any more\n";
            return EXIT_FAILURE;
        }
        words = *std::move(next);
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    const Words words(argv + 1, argv + argc);
    const auto folder = applicationSupportDirectory() / "Zelto" / "Teravolant Client";
    if (const auto error = createDirectory(folder)) {
        return fail(*error);
    }
    auto joined = Instance::join(folder, words);
    if (!joined) {
        return fail(joined.error());
    }
    auto instance = *std::move(joined);
    if (!instance) {
        return EXIT_SUCCESS;
    }
    const CommandLog log(folder / "client.log");
    return serve(*instance, log, words);
}
