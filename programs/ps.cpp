// ps -ax -o exe= | ps -ax -o pid=,exe=: prints one line for each running process: the path of its
// executable, with the process id and a blank before it in the second form.
//
// Prints paths as raw bytes and in full, whatever the locale or the terminal. If the path is hidden
// from the user, prints the process's first argument (see `runningProcesses`).
//
// Exit status: 0 on success, 1 if the list can't be read or written, 64 on a usage error.

#include <sysexits.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/error.h"
#include "platform/system/process_list.h"

namespace {

constexpr const char* kUsage = "usage: ps -ax -o exe=\n       ps -ax -o pid=,exe=\n";

int fail(const char* reason) {
    std::fprintf(stderr, "ps: %s\n", reason);
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char* argv[]) {
    using Arguments = std::vector<std::string_view>;
    const Arguments arguments(argv + 1, argv + argc);
    if (arguments == Arguments{"--help"}) {
        std::fputs(kUsage, stdout);
        return EXIT_SUCCESS;
    }
    const bool withIdentifiers = arguments == Arguments{"-ax", "-o", "pid=,exe="};
    if (!withIdentifiers && arguments != Arguments{"-ax", "-o", "exe="}) {
        std::fputs(kUsage, stderr);
        return EX_USAGE;
    }
    const auto processes = teravolant::platform::runningProcesses();
    if (!processes) {
        return fail(processes.error().localizedDescription.c_str());
    }
    std::string list;
    for (const auto& process : *processes) {
        if (withIdentifiers) {
            list += std::to_string(process.processIdentifier) + " ";
        }
        list += process.executable + "\n";
    }
    const bool isWritten =
        std::fwrite(list.data(), 1, list.size(), stdout) == list.size() && std::fflush(stdout) == 0;
    return isWritten ? EXIT_SUCCESS : fail("the list could not be written");
}
