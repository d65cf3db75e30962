// The input is a list of raw responses, separated by bytes 0x1E. Each connection receives the next
// one; after the last response, it is repeated.

#include "platform/http/http.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "fuzz/require.h"
#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/http_error.h"

namespace {

using namespace teravolant::platform;
using teravolant::fuzz::require;

constexpr char kSeparator = '\x1E';
constexpr std::uint64_t kOffset = 4;
constexpr std::uint64_t kLargestBody = 512;

/// Represents the whole network: requests to other hosts reach it as their proxy. Keeps connections
/// open for reading until the next input: closing one with unread data would reset it and lose
/// bytes of the response.
class Server {
  public:
    Server() : _socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const raw = reinterpret_cast<sockaddr*>(&address);
        socklen_t length = sizeof address;
        require(bind(_socket.get(), raw, length) == 0 && listen(_socket.get(), 16) == 0 &&
                    getsockname(_socket.get(), raw, &length) == 0,
                "the server listens");
        _url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
        for (const char* variable : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
            setenv(variable, _url.c_str(), 1);
        }
        for (const char* variable : {"no_proxy", "NO_PROXY"}) {
            unsetenv(variable);
        }
        // Makes TLS fail early: loading the system's certificates takes longer than everything
        // else.
        setenv("SSL_CERT_FILE", "/dev/null", 1);
        std::thread([this] { serve(); }).detach();
    }

    [[nodiscard]] const std::string& url() const { return _url; }

    void respondWith(std::string_view responses) {
        const std::lock_guard lock(_mutex);
        _responses = responses;
        _connections.clear();
    }

  private:
    void serve() {
        while (true) {
            FileDescriptor connection(accept4(_socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
            std::string request(4096, '\0');
            if (!connection || recv(connection.get(), request.data(), request.size(), 0) <= 0) {
                continue;
            }
            const std::lock_guard lock(_mutex);
            const std::size_t end = std::min(_responses.find(kSeparator), _responses.size());
            send(connection.get(), _responses.data(), end, MSG_NOSIGNAL | MSG_DONTWAIT);
            shutdown(connection.get(), SHUT_WR);
            _responses.erase(0, end == _responses.size() ? 0 : end + 1);
            _connections.push_back(std::move(connection));
        }
    }

    FileDescriptor _socket;
    std::string _url;
    std::mutex _mutex;
    std::string _responses;
    std::vector<FileDescriptor> _connections;
};

void check(const Result<HttpResponse>& result, std::string_view body, std::size_t inputSize) {
    require(body.size() <= std::min<std::size_t>(kLargestBody, inputSize),
            "a body exceeds neither the limit nor the input");
    if (!result) {
        require(result.error().domain == kHttpErrorDomain &&
                    !result.error().localizedDescription.empty(),
                "a failure has a description");
        return;
    }
    const HttpResponse& response = *result;
    const int status = response.status;
    require(status >= 100 && status <= 999, "a status has three digits");
    require(status != 206 || response.bodyOffset == kOffset, "a partial body is the requested one");
    require(status == 206 || response.bodyOffset == 0, "every other body begins at offset 0");
    const bool hasBody = status == 200 || status == 206;
    require(!hasBody || !response.contentLength || body.size() == *response.contentLength,
            "a body has its announced length");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto& server = *new Server();
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const HttpOptions options{.connectTimeout = std::chrono::seconds(1),
                              .stallTimeout = std::chrono::milliseconds(500),
                              .maximumBodySize = kLargestBody};
    const HttpRequest request{.url = server.url(), .resumption = HttpResumption{kOffset, "\"v\""}};

    server.respondWith(input);
    const auto whole = sendHttpRequest(request, options, transferOverHttp);
    check(whole, whole ? whole->body : "", size);

    server.respondWith(input);
    std::string streamed;
    bool begun = false;
    HttpRequest contents = request;
    contents.wanted = WantedBodies::Contents;
    const HttpBodyReceiver receiver{.begin =
                                        [&](const HttpResponse&) {
                                            require(!begun, "a body begins once");
                                            begun = true;
                                            return Status();
                                        },
                                    .receive =
                                        [&](std::string_view bytes) {
                                            require(begun, "a body begins before its first byte");
                                            streamed += bytes;
                                            return Status();
                                        }};
    const auto result = transferOverHttp(contents, receiver, options);
    check(result, streamed, size);
    require(whole || !result || result->status != 200,
            "a body that can be streamed can be collected");
    return 0;
}
