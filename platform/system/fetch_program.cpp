#include "platform/system/fetch_program.h"

#include <algorithm>
#include <optional>

#include "platform/core/error.h"
#include "platform/core/frames.h"
#include "platform/core/http_error.h"
#include "platform/system/confined_program.h"

namespace teravolant::platform {
namespace {

using Clock = std::chrono::steady_clock;

/// `fetch` enforces the time limits itself, with errors that name the host. It notices a stall
/// after at most 7/6 of the limit. The caller's limit is longer, for a program that does not.
ConfinedProgram::Settings settingsFor(const HttpOptions& options) {
    return {.name = "fetch",
            .environment = {"SSL_CERT_FILE", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY",
                            "no_proxy", "NO_PROXY"},
            .errorDomain = kHttpErrorDomain,
            .patience = options.connectTimeout + options.stallTimeout + options.stallTimeout / 3};
}

/// Receives one response and passes its body on.
class ResponseReader {
  public:
    ResponseReader(ConfinedProgram& program, const HttpRequest& request,
                   const HttpBodyReceiver& receiver, const HttpOptions& options)
        : _program(program),
          _request(request),
          _receiver(receiver),
          _options(options),
          _patience(settingsFor(options).patience) {}

    Result<HttpResponse> run() {
        while (true) {
            const auto received = _program.receive();
            if (!received) {
                return received.error();
            }
            if (received->kind == FrameKind::End) {
                return isComplete() ? Result<HttpResponse>(*_response) : _program.invalidOutput();
            }
            if (auto error = received->kind == FrameKind::Head    ? takeHead(received->payload)
                             : received->kind == FrameKind::Bytes ? takeBytes(received->payload)
                                                                  : _program.invalidOutput()) {
                return error;
            }
        }
    }

  private:
    [[nodiscard]] bool isBodyWanted() const {
        return _request.wanted == WantedBodies::All || _response->status == 200 ||
               _response->status == 206;
    }

    [[nodiscard]] bool isComplete() const {
        return _response && (!isBodyWanted() || !_response->contentLength ||
                             *_response->contentLength == _received);
    }

    Status takeHead(std::string_view payload) {
        if (_response) {
            return _program.invalidOutput();
        }
        _response = decodedResponse(payload);
        const std::uint64_t offset =
            _response && _response->status == 206 ? offsetToResumeAt(_request) : 0;
        if (!_response || _response->bodyOffset != offset) {
            return _program.invalidOutput();
        }
        return isBodyWanted() && _receiver.begin ? _receiver.begin(*_response) : Status();
    }

    Status takeBytes(std::string_view bytes) {
        _received += bytes.size();
        const auto limit = _options.maximumBodySize;
        if (!_response || !isBodyWanted() || (limit && _received > *limit) || isTooSlow(bytes)) {
            return _program.invalidOutput();
        }
        const auto before = Clock::now();
        auto error = _receiver.receive(bytes);
        _windowStart += Clock::now() - before;
        return error;
    }

    bool isTooSlow(std::string_view bytes) {
        _windowBytes += bytes.size();
        const auto now = Clock::now();
        if (now - _windowStart < _patience) {
            return false;
        }
        const auto seconds =
            std::chrono::duration_cast<std::chrono::seconds>(_options.stallTimeout);
        const bool isSlow =
            _windowBytes < kLowestRate * static_cast<std::uint64_t>(seconds.count());
        _windowStart = now;
        _windowBytes = 0;
        return isSlow;
    }

    ConfinedProgram& _program;
    const HttpRequest& _request;
    const HttpBodyReceiver& _receiver;
    const HttpOptions& _options;
    std::chrono::milliseconds _patience;
    std::optional<HttpResponse> _response;
    std::uint64_t _received = 0;
    Clock::time_point _windowStart = Clock::now();
    std::uint64_t _windowBytes = 0;
};

/// A line feed would begin another field of the request.
bool isOneLine(const HttpRequest& request) {
    return isHeaderText(request.url) &&
           std::ranges::all_of(request.headers, [](const HttpHeader& header) {
               return isHeaderText(header.name) && isHeaderText(header.value);
           });
}

}  // namespace

Result<HttpResponse> transferInProgram(const HttpRequest& request, const HttpBodyReceiver& receiver,
                                       const HttpOptions& options) {
    if (!isOneLine(request)) {
        return httpError(HttpError::badUrl, "The request contains control characters.");
    }
    auto program = ConfinedProgram::start(settingsFor(options));
    if (!program) {
        return program.error();
    }
    auto error = program->send(frame(FrameKind::Request, encodedRequest(request, options)));
    if (!error) {
        error = program->send(request.body);
    }
    if (error) {
        return error;
    }
    program->endInput();
    return ResponseReader(*program, request, receiver, options).run();
}

}  // namespace teravolant::platform
