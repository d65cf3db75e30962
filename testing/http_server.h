#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "testing/certificates.h"

namespace teravolant::fixtures {

struct ReceivedRequest {
    std::string method;
    std::string target;
    std::map<std::string, std::string> headers;  ///< By their names in lower case.
    std::string body;

    /// Empty when the request has none of that name (in lower case).
    [[nodiscard]] std::string header(const std::string& name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? "" : found->second;
    }
};

/// What the server sends for one request, and where it misbehaves. It closes the connection after
/// each answer.
struct ServerAnswer {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers = {};
    std::string body = {};
    bool chunked = false;
    /// Closes the connection after that many bytes of the body, without a TLS farewell.
    std::optional<std::size_t> cutAfter = {};
    /// Waits for `release` after that many bytes of the body.
    std::optional<std::size_t> stallAfter = {};
    /// Waits for `release` before anything is sent.
    bool isSilent = false;
    /// Sent as it is instead of a status line, headers and body.
    std::optional<std::string> raw = {};
};

/// A small HTTP/1.1 server on 127.0.0.1, with TLS when it has an identity.
///
/// Each connection has a thread of its own, on which the handler runs, so that handlers may run at
/// the same time. The destructor ends all connections and threads.
class HttpServer {
  public:
    using Handler = std::function<ServerAnswer(const ReceivedRequest&)>;

    explicit HttpServer(Handler handler, std::optional<ServerIdentity> identity = std::nullopt);
    ~HttpServer();

    /// "http" or "https", the host and the port, and the path, which begins with a slash.
    [[nodiscard]] std::string url(const std::string& path,
                                  const std::string& host = "127.0.0.1") const;
    [[nodiscard]] std::uint16_t port() const;

    /// The requests so far, in the order in which they came.
    [[nodiscard]] std::vector<ReceivedRequest> requests() const;

    /// Blocks until the server has waited in a stalled or silent answer.
    void waitForStall() const;

    /// Lets all answers go on that stall, now and later.
    void release();

  private:
    struct State;
    std::unique_ptr<State> _state;
};

/// The answer of a server that keeps the content under the entity tag and honours a Range within it
/// with If-Range (RFC 9110, section 14).
ServerAnswer answerWithRange(const ReceivedRequest& request, const std::string& content,
                             const std::string& entityTag);

}  // namespace teravolant::fixtures
