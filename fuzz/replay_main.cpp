// Runs a fuzzer on every file of the given folders: NAME_fuzzer FOLDER...

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "platform/files/files.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using teravolant::platform::contentsOfFile;

/// Returns false if the folder is missing or empty, or one of its files is unreadable.
bool replay(const char* folder) {
    bool replayed = false;
    std::error_code missing;
    for (const auto& file : std::filesystem::directory_iterator(folder, missing)) {
        const auto input = contentsOfFile(file.path());
        if (!input) {
            return false;
        }
        std::printf("%s\n", file.path().c_str());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input->data()), input->size());
        replayed = true;
    }
    return replayed;
}

}  // namespace

int main(int argc, char* argv[]) {
    for (int index = 1; index < argc; ++index) {
        if (!replay(argv[index])) {
            std::fprintf(stderr, "No readable inputs in %s\n", argv[index]);
            return EXIT_FAILURE;
        }
    }
    return argc > 1 ? EXIT_SUCCESS : EXIT_FAILURE;
}
