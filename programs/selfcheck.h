#pragma once

#include <string>
#include <vector>

#include "platform/system/bundle.h"
#include "programs/selfcheck_report.h"

// The checks of `selfcheck`. Each may run on any thread, at the same time as the others, and
// changes nothing outside of a temporary folder that it removes. Each ends by itself within 9
// seconds.
namespace teravolant::selfcheck {

/// Checks the identifier and the version in Info.plist.
Outcome checkInformation(const platform::Bundle& bundle);

/// Checks that the launcher's shell commands work with the bundle's path.
Outcome checkPlace(const platform::Bundle& bundle);

/// Checks that the bundle trusts at least one public key and that all are well formed.
Outcome checkKeys(const platform::Bundle& bundle);

/// How to start a program without any effect, to see that it runs.
struct Probe {
    std::string name;  ///< In Contents/Helpers.
    std::vector<std::string> arguments;
    int status = 0;  ///< The exit status of a sound program.
};
[[nodiscard]] const std::vector<Probe>& probes();

/// Checks that the program is complete, can be loaded, starts, and exits with the expected status.
Outcome checkHelper(const platform::Bundle& bundle, const Probe& probe);

/// Checks that this program, or the launcher, is complete and can be loaded. Does not start it.
Outcome checkSelf(const platform::Bundle& bundle);
Outcome checkLauncher(const platform::Bundle& bundle);

/// Checks that the system has the commands that the launcher runs with the shell.
Outcome checkCommands();

/// Checks that both launch agents can be read.
Outcome checkAgents(const platform::Bundle& bundle);

/// Checks that the client archive is complete and contains a native program. Reads it for at most 5
/// seconds.
Outcome checkClientArchive(const platform::Bundle& bundle);

/// Checks that `unpack` unpacks a small archive.
Outcome checkUnpacking();

/// Checks that `fetch` finds libcurl and the trusted certificates, which it needs to connect to a
/// port of this computer.
Outcome checkFetching();

/// Checks that the bundle's feed is signed by one of the bundle's keys.
Outcome checkFeed(const platform::Bundle& bundle);

/// Writes what this computer knows about updates of the bundle to standard output.
void addFacts(const platform::Bundle& bundle);

}  // namespace teravolant::selfcheck
