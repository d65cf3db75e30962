#include "platform/http/http_failures.h"

#include <array>
#include <charconv>

#include <curl/curl.h>

#include "platform/core/http_error.h"

namespace teravolant::platform {
namespace {

Status certificateError(const FailedTransfer& failed, const std::string& host) {
    constexpr long kNotYetValid = 9;
    constexpr long kHasExpired = 10;
    if (failed.certificateVerdict == kNotYetValid || failed.certificateVerdict == kHasExpired) {
        return httpError(HttpError::certificateHasBadDate,
                         "The certificate of " + host +
                             " is not valid at this time: check this computer's clock (" +
                             failed.explanation + ").");
    }
    return httpError(HttpError::certificateUntrusted,
                     host + " could not prove its identity: its certificate is not trusted (" +
                         failed.explanation + ").");
}

}  // namespace

std::string secondsText(std::chrono::milliseconds time) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(),
                                   std::chrono::duration<double>(time).count());
    return {text.data(), end.ptr};
}

Status errorOfTransfer(const FailedTransfer& failed) {
    const std::string& host = failed.host;
    const std::string reason = " (" + failed.explanation + ").";
    switch (failed.code) {
        case CURLE_COULDNT_RESOLVE_HOST:
            return httpError(HttpError::cannotFindHost,
                             host + " could not be found: check the network connection" + reason);
        case CURLE_COULDNT_RESOLVE_PROXY:
            return httpError(HttpError::cannotFindHost,
                             "The proxy on the way to " + host + " could not be found" + reason);
        case CURLE_COULDNT_CONNECT:
            return httpError(HttpError::cannotConnectToHost,
                             host + " could not be connected to" + reason);
        case CURLE_OPERATION_TIMEDOUT:
            return httpError(HttpError::timedOut, host + " could not be connected to within " +
                                                      secondsText(failed.connectTimeout) +
                                                      " seconds.");
        case CURLE_PEER_FAILED_VERIFICATION:
            return certificateError(failed, host);
        case CURLE_SSL_CACERT_BADFILE:
            return httpError(HttpError::certificatesUnreadable,
                             "The trusted certificates, which identify " + host +
                                 ", could not be read" + reason);
        case CURLE_SSL_CONNECT_ERROR:
            return httpError(
                HttpError::secureConnectionFailed,
                "A secure connection to " + host + " could not be established" + reason);
        case CURLE_PARTIAL_FILE:
        case CURLE_GOT_NOTHING:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
            return httpError(HttpError::connectionLost,
                             "The connection to " + host + " was lost" + reason);
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_BAD_CONTENT_ENCODING:
            return httpError(HttpError::badResponse,
                             host + " sent a response that is not HTTP" + reason);
        default:
            return httpError(HttpError::unknown, "The transfer from " + host + " failed" + reason);
    }
}

}  // namespace teravolant::platform
