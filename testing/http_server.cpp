#include "testing/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string_view>
#include <thread>

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include "platform/unique_fd.h"

namespace teravolant::fixtures {
namespace {

using platform::UniqueFd;

struct Free {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* connection) const { SSL_free(connection); }
    void operator()(BIO* bio) const { BIO_free_all(bio); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
template <typename Handle>
using Owned = std::unique_ptr<Handle, Free>;

Owned<SSL_CTX> contextOf(const ServerIdentity& identity) {
    Owned<SSL_CTX> context(SSL_CTX_new(TLS_server_method()));
    const Owned<BIO> certificateText(BIO_new_mem_buf(identity.certificate.data(), -1));
    const Owned<BIO> keyText(BIO_new_mem_buf(identity.privateKey.data(), -1));
    const Owned<X509> certificate(
        PEM_read_bio_X509(certificateText.get(), nullptr, nullptr, nullptr));
    const Owned<EVP_PKEY> key(PEM_read_bio_PrivateKey(keyText.get(), nullptr, nullptr, nullptr));
    if (SSL_CTX_use_certificate(context.get(), certificate.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context.get(), key.get()) != 1) {
        throw std::runtime_error("the server's identity can't be used");
    }
    return context;
}

/// One accepted connection, plain or with TLS.
class Connection {
  public:
    Connection(int descriptor, SSL_CTX* context) : _descriptor(descriptor) {
        if (context != nullptr) {
            _tls.reset(SSL_new(context));
            SSL_set_fd(_tls.get(), descriptor);
        }
    }

    bool open() { return !_tls || SSL_accept(_tls.get()) == 1; }

    void sayFarewell() {
        if (_tls) {
            SSL_shutdown(_tls.get());
        }
    }

    /// Appends what comes next; false at the end.
    bool read(std::string& text) {
        char chunk[16384];
        const auto count = _tls ? SSL_read(_tls.get(), chunk, sizeof chunk)
                                : static_cast<int>(recv(_descriptor, chunk, sizeof chunk, 0));
        text.append(chunk, static_cast<std::size_t>(std::max(count, 0)));
        return count > 0;
    }

    bool write(std::string_view bytes) {
        while (!bytes.empty()) {
            const std::size_t most = std::min<std::size_t>(bytes.size(), 1U << 20U);
            const auto count = _tls ? SSL_write(_tls.get(), bytes.data(), static_cast<int>(most))
                                    : static_cast<int>(send(_descriptor, bytes.data(), most, 0));
            if (count <= 0) {
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

  private:
    int _descriptor;
    Owned<SSL> _tls;
};

std::string lowerCase(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char letter) { return static_cast<char>(tolower(letter)); });
    return text;
}

std::string takeUpTo(std::string& text, std::string_view end) {
    const std::size_t place = text.find(end);
    std::string taken = text.substr(0, place);
    text.erase(0, place == text.npos ? text.size() : place + end.size());
    return taken;
}

/// Nothing when the client goes away or sends something else.
std::optional<ReceivedRequest> readRequest(Connection& connection) {
    std::string text;
    while (text.find("\r\n\r\n") == text.npos) {
        if (!connection.read(text)) {
            return std::nullopt;
        }
    }
    std::string head = takeUpTo(text, "\r\n\r\n");
    ReceivedRequest request;
    request.method = takeUpTo(head, " ");
    request.target = takeUpTo(head, " ");
    takeUpTo(head, "\r\n");
    while (!head.empty()) {
        std::string line = takeUpTo(head, "\r\n");
        std::string name = lowerCase(takeUpTo(line, ":"));
        request.headers[std::move(name)] =
            line.substr(std::min(line.find_first_not_of(' '), line.size()));
    }
    const std::string length = request.header("content-length");
    while (!length.empty() && text.size() < std::stoul(length)) {
        if (!connection.read(text)) {
            return std::nullopt;
        }
    }
    request.body = std::move(text);
    return request;
}

std::string headOf(const ServerAnswer& answer) {
    std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " Answer\r\n";
    for (const auto& [name, value] : answer.headers) {
        head += name + ": " + value + "\r\n";
    }
    if (answer.chunked) {
        head += "Transfer-Encoding: chunked\r\n";
    } else if (answer.status != 204) {
        head += "Content-Length: " +
                std::to_string(answer.announcedLength.value_or(answer.body.size())) + "\r\n";
    }
    return head + "Connection: close\r\n\r\n";
}

std::string chunkOf(std::string_view bytes) {
    char size[20];
    const auto end = std::to_chars(size, size + sizeof size, bytes.size(), 16);
    return std::string(size, end.ptr) + "\r\n" + std::string(bytes) + "\r\n";
}

}  // namespace

struct HttpServer::State {
    Handler handler;
    Owned<SSL_CTX> context;
    UniqueFd listener;
    std::uint16_t port = 0;

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::vector<ReceivedRequest> requests;
    std::size_t accepted = 0;
    std::size_t stalled = 0;
    bool released = false;
    bool ended = false;
    std::set<int> open;
    std::vector<std::thread> threads;

    void stall() {
        std::unique_lock lock(mutex);
        ++stalled;
        changed.notify_all();
        changed.wait(lock, [this] { return released; });
        --stalled;
    }

    bool sendBody(Connection& connection, const ServerAnswer& answer) {
        std::string_view rest = answer.body;
        const auto sendPart = [&](std::size_t length) {
            const std::string_view part = rest.substr(0, length);
            rest.remove_prefix(part.size());
            return part.empty() ||
                   connection.write(answer.chunked ? chunkOf(part) : std::string(part));
        };
        if (answer.stallAfter) {
            if (!sendPart(*answer.stallAfter)) {
                return false;
            }
            stall();
        }
        if (answer.cutAfter) {
            sendPart(*answer.cutAfter);
            return false;
        }
        return sendPart(rest.size()) && (!answer.chunked || connection.write("0\r\n\r\n"));
    }

    void answer(Connection& connection) {
        const auto request = connection.open() ? readRequest(connection) : std::nullopt;
        if (!request) {
            return;
        }
        {
            const std::lock_guard lock(mutex);
            requests.push_back(*request);
        }
        const ServerAnswer answer = handler(*request);
        if (answer.isSilent) {
            stall();
        }
        if (answer.raw ? connection.write(*answer.raw)
                       : connection.write(headOf(answer)) && sendBody(connection, answer)) {
            connection.sayFarewell();
        }
    }

    void serve(UniqueFd descriptor) {
        Connection connection(descriptor.get(), context.get());
        answer(connection);
        // The client reads all that was sent before it sees the end; then it closes its side.
        shutdown(descriptor.get(), SHUT_WR);
        const std::lock_guard lock(mutex);
        open.erase(descriptor.get());
    }

    void acceptAll() {
        while (true) {
            UniqueFd descriptor(accept(listener.get(), nullptr, nullptr));
            const std::lock_guard lock(mutex);
            if (ended || !descriptor) {
                return;
            }
            ++accepted;
            changed.notify_all();
            open.insert(descriptor.get());
            threads.emplace_back(
                [this, owned = std::move(descriptor)]() mutable { serve(std::move(owned)); });
        }
    }
};

std::string ReceivedRequest::header(const std::string& name) const {
    const auto found = headers.find(name);
    return found != headers.end() ? found->second : "";
}

HttpServer::HttpServer(Handler handler, std::optional<ServerIdentity> identity)
    : _state(std::make_unique<State>()) {
    _state->handler = std::move(handler);
    if (identity) {
        _state->context = contextOf(*identity);
    }
    _state->listener = UniqueFd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(_state->listener.get(), generic, size) != 0 ||
        listen(_state->listener.get(), SOMAXCONN) != 0 ||
        getsockname(_state->listener.get(), generic, &size) != 0) {
        throw std::runtime_error("no server could be opened");
    }
    _state->port = ntohs(address.sin_port);
    // A client that went away must not end the test; the server's threads inherit the mask.
    sigset_t pipe;
    sigset_t before;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &before);
    std::thread acceptor([state = _state.get()] { state->acceptAll(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    const std::lock_guard lock(_state->mutex);
    _state->threads.push_back(std::move(acceptor));
}

HttpServer::~HttpServer() {
    release();
    std::vector<std::thread> threads;
    {
        const std::lock_guard lock(_state->mutex);
        _state->ended = true;
        shutdown(_state->listener.get(), SHUT_RDWR);
        for (const int descriptor : _state->open) {
            shutdown(descriptor, SHUT_RDWR);
        }
        threads.swap(_state->threads);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

std::string HttpServer::url(const std::string& path, const std::string& host) const {
    return (_state->context ? "https://" : "http://") + host + ":" + std::to_string(port()) + path;
}

std::uint16_t HttpServer::port() const { return _state->port; }

std::vector<ReceivedRequest> HttpServer::requests() const {
    const std::lock_guard lock(_state->mutex);
    return _state->requests;
}

void HttpServer::waitForConnections(std::size_t count) const {
    std::unique_lock lock(_state->mutex);
    _state->changed.wait(lock, [&] { return _state->accepted >= count; });
}

void HttpServer::waitForStall() const {
    std::unique_lock lock(_state->mutex);
    _state->changed.wait(lock, [&] { return _state->stalled > 0; });
}

void HttpServer::release() {
    const std::lock_guard lock(_state->mutex);
    _state->released = true;
    _state->changed.notify_all();
}

ServerAnswer answerWithRange(const ReceivedRequest& request, const std::string& content,
                             const std::string& entityTag) {
    ServerAnswer answer{.headers = {{"ETag", entityTag}, {"Accept-Ranges", "bytes"}}};
    const std::string range = request.header("range");
    const std::string condition = request.header("if-range");
    if (!range.starts_with("bytes=") || (!condition.empty() && condition != entityTag)) {
        answer.body = content;
        return answer;
    }
    const std::size_t start = std::stoul(range.substr(6));
    const std::string length = std::to_string(content.size());
    if (start >= content.size()) {
        answer.status = 416;
        answer.headers.emplace_back("Content-Range", "bytes */" + length);
        return answer;
    }
    answer.status = 206;
    answer.headers.emplace_back(
        "Content-Range",
        "bytes " + std::to_string(start) + "-" + std::to_string(content.size() - 1) + "/" + length);
    answer.body = content.substr(start);
    return answer;
}

}  // namespace teravolant::fixtures
