#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"
#include "platform/http/http_error.h"

// HTTP requests (RFC 9110) over https, and over plain http to a loopback host only.
//
// Operations block the calling thread and make no callbacks on any other, but for the one that says
// so; they may run on several threads at once. Servers are trusted by the system's certificates,
// and by those in the file that `SSL_CERT_FILE` names. The environment's proxies are used, but
// never for a loopback host. A failure is an error of `kHttpErrorDomain` that names the host, or
// what a callback answered.
namespace teravolant::platform {

struct HttpHeader {
    std::string name;
    std::string value;
};

enum class HttpMethod : std::uint8_t { Get, Post };

/// Asks for the rest of a content that is partly here already (RFC 9110, section 14).
struct HttpResumption {
    std::uint64_t offset = 0;  ///< Bytes that are here.
    std::string validator;     ///< Of the content that they are from, see `resumptionValidator`.
};

struct HttpRequest {
    std::string url = {};
    HttpMethod method = HttpMethod::Get;
    std::vector<HttpHeader> headers = {};
    std::string body = {};  ///< Of a POST.
    /// Without a validator, or with an offset of 0, the whole is asked for.
    std::optional<HttpResumption> resumption = {};
};

struct HttpOptions {
    /// For finding the host, connecting and the TLS handshake, each time a server is connected to.
    std::chrono::milliseconds connectTimeout = std::chrono::seconds(30);
    /// How long a connected transfer may go without a byte sent or received. There is no limit on
    /// the time of the whole.
    std::chrono::milliseconds stallTimeout = std::chrono::seconds(60);
    /// Bytes of the answer's body; a larger one is an error as soon as that is known.
    std::optional<std::uint64_t> maximumBodySize = {};
    int maximumRedirects = 10;
};

struct HttpResponse {
    int status = 0;
    std::string url = {};  ///< The one that answered, after all redirects.
    std::optional<std::string> entityTag = {};
    std::optional<std::string> lastModified = {};
    std::optional<std::string> contentRange = {};
    std::optional<std::uint64_t> contentLength = {};  ///< Bytes of this answer's body.
    /// Where in the whole content the body begins: the offset that was asked for when the answer
    /// continues there (206), and 0 when it starts afresh (200).
    std::uint64_t bodyOffset = 0;
    std::string body = {};  ///< Of `sendHttpRequest` only.
};

/// What a streamed body is handed to. Each callback may refuse with an error, which ends the
/// transfer.
struct HttpBodyReceiver {
    /// Called once, before the first byte, and also for a body without one. May be empty.
    std::function<Status(const HttpResponse&)> begin = {};
    /// Called with the body's bytes in their order.
    std::function<Status(std::string_view bytes)> receive = {};
};

/// Sends a request and answers with the whole body, whatever the status.
///
/// Redirects are followed, each one checked before it is connected to: from https to https only. A
/// redirected POST stays one for the statuses 307 and 308 and becomes a GET for the others; headers
/// with credentials stay with the host that they were meant for. A body that ends early is an
/// error.
Result<HttpResponse> sendHttpRequest(const HttpRequest& request, const HttpOptions& options = {},
                                     const std::stop_token& stop = {});

/// As `sendHttpRequest`, but streams the body of a 200 or 206 answer to the receiver and keeps none
/// of it. The body of any other answer is not read; its status tells the caller, 416 included.
///
/// An answer of 206 that does not begin at the offset asked for is an error, before any byte of it
/// is handed on. It may end before the content does: `contentRange` holds the whole length.
Result<HttpResponse> streamHttpBody(const HttpRequest& request, const HttpBodyReceiver& receiver,
                                    const HttpOptions& options = {});

/// What an interrupted transfer of this answer's body can be resumed with: the strong entity tag,
/// else the modification date; empty when there is neither.
[[nodiscard]] std::string resumptionValidator(const HttpResponse& response);

}  // namespace teravolant::platform
