#pragma once

#include <string>
#include <vector>

#include "platform/system/bundle.h"
#include "programs/selfcheck_report.h"

// The checks of `selfcheck`. Each may run on any thread, at the same time as the others, and
// changes nothing outside of a temporary folder that it removes. Each ends by itself within 9
// seconds.
namespace teravolant::selfcheck {

/// Identifier, version and executable of Info.plist.
Outcome checkInformation(const platform::Bundle& bundle);

/// The public keys that the bundle trusts: at least one, all well formed.
Outcome checkKeys(const platform::Bundle& bundle);

/// How a program is started to see that it runs, without any effect.
struct Probe {
    std::string name;  ///< In Contents/Helpers.
    std::vector<std::string> arguments;
    int status = 0;  ///< The exit status of a sound program.
};
[[nodiscard]] const std::vector<Probe>& probes();

/// That the program is complete, can be loaded, starts, and exits with the expected status.
Outcome checkHelper(const platform::Bundle& bundle, const Probe& probe);

/// The same for this program and the launcher, which are not started.
Outcome checkSelf(const platform::Bundle& bundle);
Outcome checkLauncher(const platform::Bundle& bundle);

/// That the system has the commands that the launcher runs with the shell.
Outcome checkCommands();

/// That both launch agents can be read.
Outcome checkAgents(const platform::Bundle& bundle);

/// That the client archive is complete and contains a native program. Reads at most 5 seconds.
Outcome checkClientArchive(const platform::Bundle& bundle);

/// Has `unpack` unpack a small archive.
Outcome checkUnpacking();

/// Has `fetch` connect to this computer, for which it needs libcurl and the trusted certificates.
Outcome checkFetching();

/// Fetches the bundle's feed and looks for a signature by one of the bundle's keys.
Outcome checkFeed(const platform::Bundle& bundle);

/// Reports what this computer knows about updates of the bundle.
void addFacts(const platform::Bundle& bundle);

}  // namespace teravolant::selfcheck
