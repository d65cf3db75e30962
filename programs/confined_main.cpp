#include "programs/confined_main.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <iostream>
#include <string>

#include "platform/core/file_descriptor.h"

namespace teravolant {

using platform::FrameKind;

std::optional<int> processIdIn(std::string_view argument) {
    int id = 0;
    const char* const last = argument.data() + argument.size();
    const auto [end, failure] = std::from_chars(argument.data(), last, id);
    return failure == std::errc() && end == last ? std::optional(id) : std::nullopt;
}

std::optional<int> launcherIn(int argc, const char* const* argv) {
    constexpr int kArguments = 2;
    const auto launcher = processIdIn(argc == kArguments ? argv[1] : "");
    if (!launcher) {
        std::cerr << "Only the launcher starts this program.\n";
    }
    return launcher;
}

void writeFrame(FrameKind kind, std::string_view payload) {
    const std::string header = platform::frameHeader(kind, payload.size());
    std::array<iovec, 2> parts = {iovec{const_cast<char*>(header.data()), header.size()},
                                  iovec{const_cast<char*>(payload.data()), payload.size()}};
    const ssize_t count = writev(STDOUT_FILENO, parts.data(), parts.size());
    auto written = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    for (const std::string_view part : {std::string_view(header), payload}) {
        const std::size_t done = std::min(written, part.size());
        written -= done;
        if (count < 0 || platform::writeAll(STDOUT_FILENO, part.substr(done)) != 0) {
            _exit(EXIT_FAILURE);
        }
    }
}

void reportConfinement(const platform::Confinement& confinement) {
    const bool isFull = confinement.systemCalls && confinement.files;
    writeFrame(FrameKind::Confinement, isFull                    ? platform::kFullConfinement
                                       : confinement.systemCalls ? "system-calls"
                                       : confinement.files       ? "files"
                                                                 : "");
}

void finish(const platform::Status& result) {
    if (result) {
        writeFrame(FrameKind::Failure, encodedError(*result));
    } else {
        writeFrame(FrameKind::End, {});
    }
    _exit(EXIT_SUCCESS);
}

}  // namespace teravolant
