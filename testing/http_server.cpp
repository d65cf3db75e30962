#include "testing/http_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <csignal>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>

#include <openssl/bio.h>
#include <openssl/ssl.h>

#include "platform/unique_fd.h"

namespace teravolant::fixtures {
namespace {

using platform::UniqueFd;

struct Free {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(BIO* chain) const { BIO_free_all(chain); }
};
using Context = std::unique_ptr<SSL_CTX, Free>;
using Chain = std::unique_ptr<BIO, Free>;

/// With its line feed; empty at the end.
std::string readLine(BIO* connection) {
    char line[16384];
    const int length = BIO_gets(connection, line, sizeof line);
    return {line, static_cast<std::size_t>(std::max(length, 0))};
}

/// Nothing when the client goes away or sends something else.
std::optional<ReceivedRequest> readRequest(BIO* connection) {
    ReceivedRequest request;
    std::istringstream(readLine(connection)) >> request.method >> request.target;
    for (std::string line; (line = readLine(connection)) != "\r\n";) {
        if (line.empty()) {
            return std::nullopt;
        }
        std::istringstream header(line);
        std::string name;
        std::getline(header, name, ':');
        std::ranges::transform(name, name.begin(), [](unsigned char letter) {
            return static_cast<char>(std::tolower(letter));
        });
        header.ignore(1);
        std::getline(header, request.headers[name], '\r');
    }
    const std::string length = request.header("content-length");
    request.body.resize(length.empty() ? 0 : std::stoul(length));
    for (std::size_t place = 0, read = 0; place < request.body.size(); place += read) {
        if (BIO_read_ex(connection, &request.body[place], request.body.size() - place, &read) !=
            1) {
            return std::nullopt;
        }
    }
    return request;
}

void sendHead(BIO* connection, const ServerAnswer& answer) {
    BIO_printf(connection, "HTTP/1.1 %d Answer\r\nConnection: close\r\n", answer.status);
    for (const auto& [name, value] : answer.headers) {
        BIO_printf(connection, "%s: %s\r\n", name.c_str(), value.c_str());
    }
    if (answer.chunked) {
        BIO_puts(connection, "Transfer-Encoding: chunked\r\n");
    } else if (answer.status != 204) {
        BIO_printf(connection, "Content-Length: %zu\r\n", answer.body.size());
    }
    BIO_puts(connection, "\r\n");
}

void sendPart(BIO* connection, std::string_view part, bool chunked) {
    if (chunked && !part.empty()) {
        BIO_printf(connection, "%zx\r\n", part.size());
    }
    BIO_write(connection, part.data(), static_cast<int>(part.size()));
    BIO_puts(connection, chunked && !part.empty() ? "\r\n" : "");
    BIO_flush(connection);
}

}  // namespace

struct HttpServer::State {
    Handler handler;
    Context context;
    Chain listener;
    int listening = -1;
    mutable std::mutex mutex;
    std::vector<ReceivedRequest> requests;
    std::atomic<bool> hasStalled = false;
    std::atomic<bool> released = false;
    std::vector<std::pair<UniqueFd, std::thread>> connections;
    std::thread acceptor;

    void stall() {
        hasStalled = true;
        hasStalled.notify_all();
        released.wait(false);
    }

    void sendAnswer(BIO* connection, const ServerAnswer& answer) {
        if (answer.isSilent) {
            stall();
        }
        if (answer.raw) {
            return sendPart(connection, *answer.raw, false);
        }
        const std::string_view body = answer.body;
        const auto place = answer.stallAfter.value_or(answer.cutAfter.value_or(body.size()));
        sendHead(connection, answer);
        sendPart(connection, body.substr(0, place), answer.chunked);
        if (answer.stallAfter) {
            stall();
        }
        if (!answer.cutAfter) {
            sendPart(connection, body.substr(place), answer.chunked);
            sendPart(connection, answer.chunked ? "0\r\n\r\n" : "", false);
        }
    }

    void serve(int descriptor) {
        BIO* transport = BIO_new_socket(descriptor, BIO_NOCLOSE);
        if (context) {
            transport = BIO_push(BIO_new_ssl(context.get(), 0), transport);
        }
        Chain connection(BIO_push(BIO_new(BIO_f_buffer()), transport));
        if (const auto request = readRequest(connection.get())) {
            {
                const std::lock_guard lock(mutex);
                requests.push_back(*request);
            }
            const ServerAnswer answer = handler(*request);
            sendAnswer(connection.get(), answer);
            if (!answer.cutAfter) {
                connection.reset();  // says farewell
            }
        }
        // The client reads all that was sent before it sees the end; then it closes its side.
        shutdown(descriptor, SHUT_WR);
    }

    void acceptAll() {
        while (UniqueFd client{accept4(listening, nullptr, nullptr, SOCK_CLOEXEC)}) {
            const int descriptor = client.get();
            connections.emplace_back(std::move(client), [this, descriptor] { serve(descriptor); });
        }
    }
};

HttpServer::HttpServer(Handler handler, std::optional<ServerIdentity> identity)
    : _state(std::make_unique<State>()) {
    _state->handler = std::move(handler);
    if (identity) {
        _state->context.reset(SSL_CTX_new(TLS_server_method()));
        SSL_CTX_use_certificate(_state->context.get(), identity->certificate.get());
        SSL_CTX_use_PrivateKey(_state->context.get(), identity->privateKey.get());
    }
    // A client that went away must not end the test.
    std::signal(SIGPIPE, SIG_IGN);
    _state->listener.reset(BIO_new_accept("127.0.0.1:0"));
    if (BIO_do_accept(_state->listener.get()) != 1) {
        throw std::runtime_error("no server could be opened");
    }
    _state->listening = static_cast<int>(BIO_get_fd(_state->listener.get(), nullptr));
    _state->acceptor = std::thread([state = _state.get()] { state->acceptAll(); });
}

HttpServer::~HttpServer() {
    release();
    shutdown(_state->listening, SHUT_RDWR);
    _state->acceptor.join();
    for (auto& [descriptor, thread] : _state->connections) {
        shutdown(descriptor.get(), SHUT_RDWR);
        thread.join();
    }
}

std::string HttpServer::url(const std::string& path, const std::string& host) const {
    return (_state->context ? "https://" : "http://") + host + ":" + std::to_string(port()) + path;
}

std::uint16_t HttpServer::port() const {
    return static_cast<std::uint16_t>(std::stoul(BIO_get_accept_port(_state->listener.get())));
}

std::vector<ReceivedRequest> HttpServer::requests() const {
    const std::lock_guard lock(_state->mutex);
    return _state->requests;
}

void HttpServer::waitForStall() const { _state->hasStalled.wait(false); }

void HttpServer::release() {
    _state->released = true;
    _state->released.notify_all();
}

ServerAnswer answerWithRange(const ReceivedRequest& request, const std::string& content,
                             const std::string& entityTag) {
    ServerAnswer answer{.headers = {{"ETag", entityTag}}, .body = content};
    const std::string range = request.header("range");
    const std::string condition = request.header("if-range");
    if (!range.starts_with("bytes=") || (!condition.empty() && condition != entityTag)) {
        return answer;
    }
    const std::size_t start = std::stoul(range.substr(6));
    const std::string end =
        std::to_string(content.size() - 1) + "/" + std::to_string(content.size());
    answer.status = 206;
    answer.body.erase(0, start);
    answer.headers.emplace_back("Content-Range", "bytes " + std::to_string(start) + "-" + end);
    return answer;
}

}  // namespace teravolant::fixtures
