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

// HTTP requests (RFC 9110): https to any host, plain http to loopback hosts only.
//
// All operations block, call back on the calling thread, and may be called from several threads at
// once. Servers are authenticated with the system's certificates, and those in the file
// `$SSL_CERT_FILE`. The proxies of the environment are used, but never for a loopback host.
// Failures are errors of `kHttpErrorDomain` (http_error.h) that name the host, or the error of a
// callback.
namespace teravolant::platform {

struct HttpHeader {
    std::string name;
    std::string value;
};

enum class HttpMethod : std::uint8_t { Get, Post };

/// Requests the remainder of a partly downloaded body (RFC 9110, section 14).
struct HttpResumption {
    std::uint64_t offset = 0;  ///< Bytes that the caller already has.
    std::string validator;     ///< Of the response that they are from: `resumptionValidator`.
};

struct HttpRequest {
    std::string url = {};
    HttpMethod method = HttpMethod::Get;
    std::vector<HttpHeader> headers = {};
    std::string body = {};  ///< Sent with POST only.
    /// Without a validator, or with an offset of 0, the whole body is requested.
    std::optional<HttpResumption> resumption = {};
};

struct HttpOptions {
    /// For DNS look-up, TCP connect and TLS handshake together, for each connection.
    std::chrono::milliseconds connectTimeout = std::chrono::seconds(30);
    /// How long a connected transfer may pause without a byte sent or received. The total duration
    /// has no limit.
    std::chrono::milliseconds stallTimeout = std::chrono::seconds(60);
    /// Bytes of the response's body. Fails as soon as the body is known to be larger.
    std::optional<std::uint64_t> maximumBodySize = {};
    int maximumRedirects = 10;
};

struct HttpResponse {
    int status = 0;
    std::string url = {};  ///< Of the last request, after all redirects.
    std::optional<std::string> entityTag = {};
    std::optional<std::string> lastModified = {};
    std::optional<std::string> contentRange = {};
    std::optional<std::uint64_t> contentLength = {};  ///< Bytes of this response's body.
    /// Where the body begins within the whole content: the requested offset for status 206, else 0.
    std::uint64_t bodyOffset = 0;
    std::string body = {};  ///< Set by `sendHttpRequest` only.
};

/// The callbacks for a streamed body. An error that one of them returns ends the transfer.
struct HttpBodyReceiver {
    /// Called once, before the first byte, and also for an empty body. Optional.
    std::function<Status(const HttpResponse&)> begin = {};
    /// Called with consecutive pieces of the body.
    std::function<Status(std::string_view bytes)> receive = {};
};

/// Sends a request and returns the response with its whole body, for every status.
///
/// Follows redirects and checks each target before it connects: https redirects to https only. A
/// redirected POST stays a POST for the statuses 307 and 308 and becomes a GET for the others. A
/// redirect to another origin drops headers with credentials. A body that ends early is an error.
Result<HttpResponse> sendHttpRequest(const HttpRequest& request, const HttpOptions& options = {},
                                     const std::stop_token& stop = {});

/// Like `sendHttpRequest`, but streams the body of a 200 or 206 response to the receiver. Does not
/// read the body of another response, 416 included: the caller checks `status`.
///
/// A 206 response that does not begin at the requested offset is an error, before the receiver is
/// called. It may end before the content does: `contentRange` has the length of the content.
Result<HttpResponse> streamHttpBody(const HttpRequest& request, const HttpBodyReceiver& receiver,
                                    const HttpOptions& options = {});

/// Returns the validator for resuming an interrupted transfer of this response's body: the strong
/// entity tag, else the modification date, else an empty text.
[[nodiscard]] std::string resumptionValidator(const HttpResponse& response);

}  // namespace teravolant::platform
