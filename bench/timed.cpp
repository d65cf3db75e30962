// Runs a command and appends a line to a file: the elapsed seconds, and the peak resident set size,
// in MiB, of its largest process.
//
// Usage: timed FILE COMMAND...

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char* argv[]) {
    if (argc < 3) {
        return EXIT_FAILURE;
    }
    const auto start = std::chrono::steady_clock::now();
    pid_t command = 0;
    int status = 0;
    rusage usage{};
    if (posix_spawnp(&command, argv[2], nullptr, nullptr, argv + 2, environ) != 0 ||
        wait4(command, &status, 0, &usage) != command || status != 0) {
        std::fprintf(stderr, "%s failed\n", argv[2]);
        return EXIT_FAILURE;
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    constexpr double kKibibytesInMebibyte = 1024;
    std::FILE* const file = std::fopen(argv[1], "ae");
    return file != nullptr &&
                   std::fprintf(file, "%.6f %.1f\n", taken.count(),
                                static_cast<double>(usage.ru_maxrss) / kKibibytesInMebibyte) > 0 &&
                   std::fclose(file) == 0
               ? EXIT_SUCCESS
               : EXIT_FAILURE;
}
