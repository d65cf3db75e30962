// Answers of a server, separated by bytes of 1E (hexadecimal): each connection gets the next one,
// as it is, and the ones beyond the last get the last again.

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
#include "platform/http/http_error.h"

namespace {

using namespace teravolant::platform;
using teravolant::fuzz::require;

constexpr char kSeparator = '\x1E';
constexpr std::uint64_t kOffset = 4;
constexpr std::uint64_t kLargestBody = 512;

/// Stands for the whole network: what is not for this computer goes to it as to a proxy.
/// Connections stay open for reading, so that no byte of an answer is lost, until the next input
/// comes.
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
                "there is a server");
        _url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
        for (const char* variable : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
            setenv(variable, _url.c_str(), 1);
        }
        for (const char* variable : {"no_proxy", "NO_PROXY"}) {
            unsetenv(variable);
        }
        // An attempt at TLS ends here: to load the system's certificates takes longest of all.
        setenv("SSL_CERT_FILE", "/dev/null", 1);
        std::thread([this] { serve(); }).detach();
    }

    [[nodiscard]] const std::string& url() const { return _url; }

    void answerWith(std::string_view answers) {
        const std::lock_guard lock(_mutex);
        _answers = answers;
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
            const std::size_t end = std::min(_answers.find(kSeparator), _answers.size());
            send(connection.get(), _answers.data(), end, MSG_NOSIGNAL | MSG_DONTWAIT);
            shutdown(connection.get(), SHUT_WR);
            _answers.erase(0, end == _answers.size() ? 0 : end + 1);
            _connections.push_back(std::move(connection));
        }
    }

    FileDescriptor _socket;
    std::string _url;
    std::mutex _mutex;
    std::string _answers;
    std::vector<FileDescriptor> _connections;
};

void check(const Result<HttpResponse>& answer, std::string_view body, std::size_t inputSize) {
    require(body.size() <= std::min<std::size_t>(kLargestBody, inputSize),
            "a body is no longer than the limit, nor than what was sent");
    if (!answer) {
        require(answer.error().domain == kHttpErrorDomain &&
                    !answer.error().localizedDescription.empty(),
                "a failure says why");
        return;
    }
    const HttpResponse& response = *answer;
    const int status = response.status;
    require(status >= 100 && status <= 999, "a status has three digits");
    require(status != 206 || response.bodyOffset == kOffset, "a part is the one asked for");
    require(status == 206 || response.bodyOffset == 0, "anything else begins at the start");
    const bool hasBody = status == 200 || status == 206;
    require(!hasBody || !response.contentLength || body.size() == *response.contentLength,
            "a body is as long as it was announced");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto& server = *new Server();
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const HttpOptions options{.connectTimeout = std::chrono::seconds(1),
                              .stallTimeout = std::chrono::milliseconds(500),
                              .maximumBodySize = kLargestBody,
                              .maximumRedirects = 2};
    const HttpRequest request{.url = server.url(), .resumption = HttpResumption{kOffset, "\"v\""}};

    server.answerWith(input);
    const auto whole = sendHttpRequest(request, options);
    check(whole, whole ? whole->body : "", size);

    server.answerWith(input);
    std::string streamed;
    bool begun = false;
    const auto answer =
        streamHttpBody(request,
                       {.begin =
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
                            }},
                       options);
    check(answer, streamed, size);
    require(whole || !answer || answer->status != 200, "a body that can be streamed can be kept");
    return 0;
}
