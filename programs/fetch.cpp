// fetch LAUNCHER: sends one HTTP request and writes its response, for the launcher with that
// process id. Reads the request from standard input: a frame, then the request's body. Writes
// frames: the confinement, the head of the response, its body in pieces, and the end or an error.
//
// The program confines itself first. Afterwards it can read the system's files and use the network,
// but neither change a file nor start a program.

#include <unistd.h>

#include <array>
#include <chrono>
#include <string>

#include "platform/core/http_error.h"
#include "platform/http/http.h"
#include "programs/confined_main.h"

namespace {

using namespace teravolant::platform;
using teravolant::writeFrame;

constexpr std::size_t kLargestRequest = std::size_t{4} << 20U;

/// Collects small pieces of the body in one frame, for at most a second.
class BodyWriter {
  public:
    void add(std::string_view bytes) {
        constexpr std::size_t kEnough = std::size_t{128} * 1024;
        _bytes += bytes;
        if (_bytes.size() >= kEnough) {
            flush();
        }
    }

    void flushIfOld() {
        if (std::chrono::steady_clock::now() - _lastFrame >= std::chrono::seconds(1)) {
            flush();
        }
    }

    void flush() {
        if (!_bytes.empty()) {
            writeFrame(FrameKind::Bytes, _bytes);
        }
        _bytes.clear();
        _lastFrame = std::chrono::steady_clock::now();
    }

  private:
    std::string _bytes;
    std::chrono::steady_clock::time_point _lastFrame = std::chrono::steady_clock::now();
};

std::string readInput() {
    std::string input;
    std::array<char, 65536> piece{};
    while (input.size() < kLargestRequest) {
        const ssize_t count = read(STDIN_FILENO, piece.data(), piece.size());
        if (count <= 0) {
            break;
        }
        input.append(piece.data(), static_cast<std::size_t>(count));
    }
    return input;
}

Status serve() {
    const std::string input = readInput();
    const auto header = frameIn(std::string_view(input).substr(0, kFrameHeaderSize));
    const std::size_t end = header ? kFrameHeaderSize + header->second : 0;
    auto decoded =
        header && end <= input.size()
            ? decodedRequest(std::string_view(input).substr(kFrameHeaderSize, header->second))
            : std::nullopt;
    if (!decoded) {
        return httpError(HttpError::unknown, "The request is malformed.");
    }
    auto& [request, options] = *decoded;
    request.body = input.substr(end);
    bool hasBegun = false;
    const auto begin = [&hasBegun](const HttpResponse& response) {
        hasBegun = true;
        writeFrame(FrameKind::Head, encodedResponse(response));
        return Status();
    };
    BodyWriter body;
    const HttpBodyReceiver receiver{.begin = begin,
                                    .receive =
                                        [&body](std::string_view bytes) {
                                            body.add(bytes);
                                            return Status();
                                        },
                                    .tick = [&body] { body.flushIfOld(); }};
    const auto response = transferOverHttp(request, receiver, options);
    body.flush();
    if (!response) {
        return response.error();
    }
    // The transfer does not announce a body that is not wanted.
    if (!hasBegun) {
        (void)begin(*response);
    }
    return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    const auto launcher = teravolant::launcherIn(argc, argv);
    if (!launcher) {
        return 2;
    }
    teravolant::reportConfinement(confineFetch(*launcher));
    teravolant::finish(serve());
}
