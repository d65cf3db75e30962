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
// Two functions perform a request: `transferOverHttp` (platform/http) in this process, and
// `transferInProgram` (platform/system/fetch_program.h) in the confined program `fetch`.
namespace teravolant::platform {

struct HttpHeader {
    std::string name;
    std::string value;
};

enum class HttpMethod : std::uint8_t { Get, Post };

/// Which bodies the receiver gets: those of every status, or those of 200 and 206 only.
enum class WantedBodies : std::uint8_t { All, Contents };

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
    WantedBodies wanted = WantedBodies::All;
};

struct HttpOptions {
    /// For DNS look-up, TCP connect and TLS handshake together, for each connection.
    std::chrono::milliseconds connectTimeout = std::chrono::seconds(30);
    /// A connected transfer fails if fewer than `kLowestRate` bytes of the body a second arrive for
    /// this time. The total duration has no limit.
    std::chrono::milliseconds stallTimeout = std::chrono::seconds(60);
    /// Bytes of the response's body. Fails as soon as the body is known to be larger.
    std::optional<std::uint64_t> maximumBodySize = {};
    /// Ends a transfer of `transferOverHttp` within about a second.
    std::stop_token stop = {};
};

/// In bytes of the body a second. Headers, interim responses and chunk extensions do not count.
inline constexpr std::uint64_t kLowestRate = 200;

inline constexpr int kMaximumRedirects = 10;

struct HttpResponse {
    int status = 0;
    std::string url = {};    ///< Of the last request, after all redirects.
    std::string proxy = {};  ///< Host and port of the proxy, for messages. Empty without a proxy.
    std::optional<std::string> entityTag = {};
    std::optional<std::string> lastModified = {};
    std::optional<std::uint64_t> contentLength = {};  ///< Bytes of this response's body.
    /// Where the body begins within the whole content: the requested offset for status 206, else 0.
    std::uint64_t bodyOffset = 0;
    /// Bytes of the whole content, if a response with status 206 states it. Set by
    /// `transferOverHttp` only.
    std::optional<std::uint64_t> completeLength = {};
    std::optional<std::chrono::seconds> retryAfter = {};  ///< RFC 9110, section 10.2.3.
    std::string body = {};                                ///< Set by `sendHttpRequest` only.
};

/// The callbacks for a streamed body. An error that one of them returns ends the transfer.
struct HttpBodyReceiver {
    /// Called once, before the first byte, and also for an empty body. Optional.
    std::function<Status(const HttpResponse&)> begin = {};
    /// Called with consecutive pieces of the body.
    std::function<Status(std::string_view bytes)> receive = {};
    /// Called at least once a second, by `transferOverHttp` only. Optional.
    std::function<void()> tick = {};
};

/// Performs a request and streams the wanted body to the receiver, on the calling thread. Returns
/// the response without its body. The body of an unwanted response, 416 included, is not read: the
/// caller checks `status`.
///
/// Follows up to `kMaximumRedirects` redirects and checks each target before it connects: https
/// redirects to https only. A redirected POST stays a POST for the statuses 307 and 308 and becomes
/// a GET for the others. A redirect to another origin drops headers with credentials. A 206
/// response that does not begin at the requested offset, and a body that ends early, are errors.
///
/// Fails with an error of `kHttpErrorDomain` (http_error.h) that names the host, with the error of
/// a callback, or with the error of the program that performs the request.
using HttpTransfer = Result<HttpResponse>(const HttpRequest& request,
                                          const HttpBodyReceiver& receiver,
                                          const HttpOptions& options);

/// Performs the request and returns the response with its body.
Result<HttpResponse> sendHttpRequest(const HttpRequest& request, const HttpOptions& options,
                                     HttpTransfer& transfer);

/// Returns the validator for resuming an interrupted transfer of this response's body: the strong
/// entity tag, else the modification date, else an empty text.
[[nodiscard]] std::string resumptionValidator(const HttpResponse& response);

/// Returns the offset of the range to request, or 0 for the whole body: also if the validator is
/// missing, or damaged in the file that it was stored in.
[[nodiscard]] std::uint64_t offsetToResumeAt(const HttpRequest& request);

/// Whether the text can be part of a header line: it contains no control character except tabs.
[[nodiscard]] bool isHeaderText(std::string_view text);

}  // namespace teravolant::platform
