// selfcheck [--offline] [--verbose]: reports whether the bundle that contains it is complete, can
// run on this computer, and could update itself from here. With --offline it does not fetch the
// feed.
//
// Writes one line for each check. With --verbose, or to a terminal, it adds what this computer
// knows about updates. The last line is "selfcheck: passed" or "selfcheck: failed: REASON"; the
// launcher reads it before it installs a bundle, and again after that. "selfcheck: unclear: REASON"
// means that a check was not possible, for example because a program did not end in time: the
// launcher does not remember such a bundle as bad. A "note", for example that the network can't be
// reached, is not a failure.
//
// Writes only into a temporary folder in $TMPDIR, else in /tmp, and removes it. Ends within 9
// seconds.
//
// Exit status: 0 if passed, 1 if failed or unclear, 2 on a usage error.

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <future>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/file_descriptor.h"
#include "programs/selfcheck.h"

namespace {

using namespace teravolant::selfcheck;
using teravolant::platform::Bundle;

constexpr std::string_view kUsage =
    "usage: selfcheck [--offline] [--verbose]\n"
    "Reports whether this bundle is complete, can run here, and could update itself from here.\n"
    "  --offline  does not fetch the update feed\n"
    "  --verbose  also prints what is known about updates, as on a terminal\n";

constexpr int kUsageError = 2;

struct Options {
    bool isOffline = false;
    bool isVerbose = isatty(STDOUT_FILENO) == 1;
    bool wantsHelp = false;
};

std::optional<Options> readOptions(const std::vector<std::string_view>& arguments) {
    Options options;
    for (const std::string_view argument : arguments) {
        if (argument == "--offline") {
            options.isOffline = true;
        } else if (argument == "--verbose") {
            options.isVerbose = true;
        } else if (argument == "--help") {
            options.wantsHelp = true;
        } else {
            return std::nullopt;
        }
    }
    return options;
}

/// The last resort, for a check that hangs where no time limit applies.
void endLate(int /*signal*/) {
    constexpr std::string_view kLine =
        "selfcheck: unclear: the checks did not end within 9 seconds\n";
    (void)!write(STDOUT_FILENO, kLine.data(), kLine.size());
    _exit(EXIT_FAILURE);
}

/// Corrects the descriptors and signals that the program inherited, and limits its run.
void prepareProcess() {
    constexpr unsigned kLongestRun = 9;  // Seconds.
    teravolant::platform::openMissingStandardStreams();
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGCHLD, SIG_DFL);
    (void)std::signal(SIGALRM, endLate);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    alarm(kLongestRun);
}

/// Runs all checks and reports them in a fixed order. The slow ones run on threads of their own,
/// and the programs start one after another, so that few run at the same time.
int check(const Bundle& bundle, const Options& options) {
    std::vector<std::future<Outcome>> slow;
    slow.push_back(inBackground([&bundle] { return checkClientArchive(bundle); }));
    slow.push_back(inBackground(checkUnpacking));
    slow.push_back(inBackground(checkFetching));
    if (!options.isOffline) {
        slow.push_back(inBackground([&bundle] { return checkFeed(bundle); }));
    }
    Report report;
    report.add(checkInformation(bundle));
    report.add(checkPlace(bundle));
    report.add(checkKeys(bundle));
    report.add(checkLauncher(bundle));
    for (const Probe& probe : probes()) {
        report.add(checkHelper(bundle, probe));
    }
    report.add(checkSelf(bundle));
    report.add(checkCommands());
    report.add(checkAgents(bundle));
    for (auto& outcome : slow) {
        report.add(outcome.get());
    }
    if (options.isVerbose) {
        addFacts(bundle);
    }
    return report.finish();
}

}  // namespace

int main(int argc, char* argv[]) {
    prepareProcess();
    const auto options = readOptions({argv + 1, argv + argc});
    if (!options) {
        std::cerr << kUsage;
        return kUsageError;
    }
    if (options->wantsHelp) {
        std::cout << kUsage;
        return EXIT_SUCCESS;
    }
    const int status = check(Bundle::mainBundle(), *options);
    // Checks that reached their time limit may still run: do not destroy what they use.
    _exit(status);
}
