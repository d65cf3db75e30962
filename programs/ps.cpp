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

int main(int argc, char* argv[]) {
    const std::vector<std::string_view> arguments(argv + 1, argv + argc);
    const bool withIdentifiers =
        arguments == std::vector<std::string_view>{"-ax", "-o", "pid=,exe="};
    if (!withIdentifiers && arguments != std::vector<std::string_view>{"-ax", "-o", "exe="}) {
        std::fputs("usage: ps -ax -o exe=\n       ps -ax -o pid=,exe=\n", stderr);
        return EX_USAGE;
    }
    const auto processes = teravolant::platform::runningProcesses();
    if (!processes) {
        std::fprintf(stderr, "ps: %s\n", processes.error().localizedDescription.c_str());
        return EXIT_FAILURE;
    }
    std::string list;
    for (const auto& process : *processes) {
        if (withIdentifiers) {
            list += std::to_string(process.processIdentifier) + " ";
        }
        list += process.executable + "\n";
    }
    const bool written = std::fwrite(list.data(), 1, list.size(), stdout) == list.size();
    return written && std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
