// Performs one exchange with libcurl's easy interface, which calls back on the same thread.
//
// `receiveHeader` collects the headers of the last response: earlier ones are interim responses.
// `receiveBytes` gets the body. Its first bytes show that the head is complete: `takeHead` checks
// it then, or at the end of a response without a body. A callback ends the transfer when it returns
// an error, either after it left an error in `_error`, which takes precedence over libcurl's
// result, or because the body is not wanted, which is a success. Redirects are not left to libcurl,
// because each target has to pass `HttpAddress` before it is contacted.
//
// `checkProgress`, which libcurl calls at least once a second, compares the bytes of the body with
// the lowest rate, over the last six periods that make up the stall timeout. libcurl's own
// low-speed limit also counts bytes outside of the body.
#include "platform/http/http_exchange.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <numeric>
#include <utility>

#include <curl/curl.h>

#include "platform/core/deleter.h"
#include "platform/core/http_error.h"
#include "platform/core/text.h"
#include "platform/http/http_environment.h"
#include "platform/http/http_failures.h"
#include "platform/http/http_headers.h"

namespace teravolant::platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long kReceiveSize = 128L * 1024;
/// Returned by a callback to end the transfer. Never the number of bytes that it received.
constexpr std::size_t kEndTransfer = 0xFFFFFFFF;

using HeaderList = std::unique_ptr<curl_slist, Deleter<curl_slist_free_all>>;

bool isRedirect(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool isLoopbackAddress(const sockaddr* address) {
    if (address->sa_family == AF_INET) {
        const auto* four = reinterpret_cast<const sockaddr_in*>(address);
        return ntohl(four->sin_addr.s_addr) >> 24U == IN_LOOPBACKNET;
    }
    const auto* six = reinterpret_cast<const sockaddr_in6*>(address);
    return address->sa_family == AF_INET6 && IN6_IS_ADDR_LOOPBACK(&six->sin6_addr);
}

/// One request to one address and its response. The target of a redirect is another exchange.
class Exchange {
  public:
    Exchange(CURL* easy, const HttpAddress& address, const HttpRequest& request,
             const HttpOptions& options, const HttpBodyReceiver& receiver)
        : _easy(easy),
          _address(address),
          _request(request),
          _options(options),
          _receiver(receiver) {}

    /// Blocks until the end of the response, or of its head if the body is not wanted.
    Status run();

    /// Called once, after `run` has succeeded.
    HttpExchange takeResult() { return {std::move(_response), std::move(_redirect)}; }

  private:
    Status prepare();
    Status prepareHeaders();
    void prepareCallbacks();
    void addLine(const std::string& line);
    void addHeader(const HttpHeader& header);
    template <typename Value>
    void set(CURLoption option, Value value) {
        _prepared = _prepared && curl_easy_setopt(_easy, option, value) == CURLE_OK;
    }

    static std::size_t receiveHeader(char* bytes, std::size_t size, std::size_t count, void* self);
    Status addReceivedHeader(std::string_view line);
    Status takeHead();
    Status checkRange();
    static std::size_t receiveBytes(char* bytes, std::size_t size, std::size_t count, void* self);
    Status receive(std::string_view bytes);
    static int checkProgress(void* self, curl_off_t /*size*/, curl_off_t /*got*/,
                             curl_off_t /*toSend*/, curl_off_t /*sent*/);
    bool hasStalled();
    void restartCount(Clock::time_point now);
    static curl_socket_t openSocket(void* self, curlsocktype purpose, curl_sockaddr* address);

    [[nodiscard]] Status tooLarge() const;
    [[nodiscard]] Status failure(CURLcode code) const;
    [[nodiscard]] std::string host() const {
        return quoted(_address.displayedHost()) +
               (_proxy.empty() ? ""
                               : " (through the proxy " + quoted(displayedProxy(_proxy)) + ")");
    }

    CURL* _easy;
    const HttpAddress& _address;
    const HttpRequest& _request;
    const HttpOptions& _options;
    const HttpBodyReceiver& _receiver;

    HeaderList _headers;
    std::string _proxy;
    std::array<char, CURL_ERROR_SIZE> _message{};
    bool _prepared = true;

    /// The bytes of the body in each of the last periods, the current one first.
    std::array<std::uint64_t, 6> _bytesOfPeriods{};
    std::size_t _periods = 0;  ///< The number of past periods.
    Clock::time_point _periodStart = Clock::now();

    ReceivedHeaders _receivedHeaders;
    bool _hasHead = false;
    bool _isBodyWanted = false;
    std::optional<std::string> _redirect;
    HttpResponse _response;
    std::uint64_t _received = 0;
    Status _error;  ///< Set by the callback that ended the transfer.
};

void Exchange::addLine(const std::string& line) {
    curl_slist* longer = curl_slist_append(_headers.get(), line.c_str());
    if (longer == nullptr) {
        _prepared = false;
        return;
    }
    static_cast<void>(_headers.release());
    _headers.reset(longer);
}

void Exchange::addHeader(const HttpHeader& header) {
    // libcurl's notation for a header without a value ends with a semicolon instead of a colon.
    addLine(header.value.empty() ? header.name + ";" : header.name + ": " + header.value);
}

Status Exchange::prepareHeaders() {
    for (const HttpHeader& header : _request.headers) {
        if (!isHeaderText(header.name) || !isHeaderText(header.value)) {
            return httpError(HttpError::unknown, "A header of the request to " + host() +
                                                     " contains control characters.");
        }
        addHeader(header);
    }
    if (const std::uint64_t offset = offsetToResumeAt(_request); offset > 0) {
        addHeader({"Range", "bytes=" + std::to_string(offset) + "-"});
        addHeader({"If-Range", _request.resumption->validator});
    }
    // Removes "Expect: 100-continue", which delays large bodies until the server has confirmed.
    addLine("Expect:");
    set(CURLOPT_HTTPHEADER, _headers.get());
    return std::nullopt;
}

void Exchange::prepareCallbacks() {
    set(CURLOPT_HEADERFUNCTION, &Exchange::receiveHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &Exchange::receiveBytes);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, &Exchange::checkProgress);
    set(CURLOPT_XFERINFODATA, this);
    if (!_address.isSecure()) {
        set(CURLOPT_OPENSOCKETFUNCTION, &Exchange::openSocket);
        set(CURLOPT_OPENSOCKETDATA, this);
    }
}

Status Exchange::prepare() {
    curl_easy_reset(_easy);
    set(CURLOPT_CURLU, static_cast<CURLU*>(_address.handle()));
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_ERRORBUFFER, _message.data());
    // Signal handlers belong to the program, not to a library.
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(_options.connectTimeout.count()));
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    set(CURLOPT_BUFFERSIZE, kReceiveSize);
    if (const auto file = certificateFile()) {
        set(CURLOPT_CAINFO, file->c_str());
    }
    _proxy = _address.isSecure() ? proxyFor(_address.host()) : "";
    set(CURLOPT_PROXY, _proxy.c_str());
    // `proxyFor` has decided already.
    set(CURLOPT_NOPROXY, "");
    if (_request.method == HttpMethod::Post) {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDS, _request.body.data());
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(_request.body.size()));
    }
    prepareCallbacks();
    if (auto error = prepareHeaders()) {
        return error;
    }
    return _prepared ? Status()
                     : httpError(HttpError::unknown,
                                 "The request to " + host() + " could not be created.");
}

Status Exchange::run() {
    if (auto error = prepare()) {
        return error;
    }
    const CURLcode end = curl_easy_perform(_easy);
    if (_error) {
        return _error;
    }
    if (_hasHead && !_isBodyWanted) {
        return std::nullopt;
    }
    return end == CURLE_OK ? takeHead() : failure(end);
}

std::size_t Exchange::receiveHeader(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& exchange = *static_cast<Exchange*>(self);
    exchange._error = exchange.addReceivedHeader({bytes, size * count});
    return exchange._error ? kEndTransfer : size * count;
}

Status Exchange::addReceivedHeader(std::string_view line) {
    return _receivedHeaders.add(line)
               ? Status()
               : httpError(HttpError::badResponse, host() + " sent more than " +
                                                       std::to_string(ReceivedHeaders::kMostBytes) +
                                                       " bytes of headers.");
}

int Exchange::checkProgress(void* self, curl_off_t /*size*/, curl_off_t /*got*/,
                            curl_off_t /*toSend*/, curl_off_t /*sent*/) {
    auto& exchange = *static_cast<Exchange*>(self);
    if (exchange._options.stop.stop_requested()) {
        exchange._error = httpError(HttpError::cancelled, "The transfer was cancelled.");
        return 1;
    }
    if (exchange._receiver.tick) {
        exchange._receiver.tick();
    }
    const bool isOver = !exchange._error && exchange.hasStalled();
    if (isOver) {
        exchange._error = httpError(
            HttpError::timedOut, exchange.host() + " stopped responding: fewer than " +
                                     std::to_string(kLowestRate) + " bytes a second arrived for " +
                                     secondsText(exchange._options.stallTimeout) + " seconds.");
    }
    return isOver ? 1 : 0;
}

void Exchange::restartCount(Clock::time_point now) {
    _bytesOfPeriods = {};
    _periods = 0;
    _periodStart = now;
}

bool Exchange::hasStalled() {
    curl_off_t connected = 0;
    curl_easy_getinfo(_easy, CURLINFO_PRETRANSFER_TIME_T, &connected);
    const auto now = Clock::now();
    if (connected == 0) {
        // libcurl enforces the connect timeout.
        restartCount(now);
        return false;
    }
    const auto count = _bytesOfPeriods.size();
    const auto period = std::max<std::chrono::milliseconds>(_options.stallTimeout / count,
                                                            std::chrono::milliseconds(1));
    const auto needed =
        static_cast<std::uint64_t>(_options.stallTimeout.count()) * kLowestRate / 1000;
    for (; now - _periodStart >= period; _periodStart += period) {
        const std::uint64_t received =
            std::accumulate(_bytesOfPeriods.begin(), _bytesOfPeriods.end(), std::uint64_t{0});
        if (++_periods >= count && received < needed) {
            return true;
        }
        std::shift_right(_bytesOfPeriods.begin(), _bytesOfPeriods.end(), 1);
        _bytesOfPeriods.front() = 0;
    }
    return false;
}

curl_socket_t Exchange::openSocket(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) {
    auto& exchange = *static_cast<Exchange*>(self);
    if (!isLoopbackAddress(&address->addr)) {
        exchange._error = httpError(
            HttpError::unsupportedUrl,
            exchange.host() + " is not a loopback address on this computer: only https is safe.");
        return CURL_SOCKET_BAD;
    }
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

/// Reads and checks the complete head of the response. Does nothing when called again.
Status Exchange::takeHead() {
    if (std::exchange(_hasHead, true)) {
        return std::nullopt;
    }
    long status = 0;
    curl_off_t length = -1;
    curl_off_t retryAfter = 0;
    curl_easy_getinfo(_easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(_easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    curl_easy_getinfo(_easy, CURLINFO_RETRY_AFTER, &retryAfter);
    if (status < 100 || status > 999) {
        return httpError(HttpError::badResponse,
                         host() + " sent a response that is not HTTP (its status is " +
                             std::to_string(status) + ").");
    }
    _response.status = static_cast<int>(status);
    _response.url = _address.url();
    _response.proxy = displayedProxy(_proxy);
    _response.entityTag = _receivedHeaders.find("etag");
    _response.lastModified = _receivedHeaders.find("last-modified");
    if (length >= 0) {
        _response.contentLength = static_cast<std::uint64_t>(length);
    }
    if (_response.status == 206) {
        _response.completeLength =
            completeLengthIn(_receivedHeaders.find("content-range").value_or(""));
    }
    if (retryAfter > 0) {
        constexpr curl_off_t kOneDay = 86400;
        _response.retryAfter = std::chrono::seconds(std::min(retryAfter, kOneDay));
    }
    if (isRedirect(_response.status)) {
        _redirect = _receivedHeaders.find("location");
    }
    const bool isContent = _response.status == 200 || _response.status == 206;
    _isBodyWanted = !_redirect && (_request.wanted == WantedBodies::All || isContent);
    if (!_isBodyWanted) {
        return std::nullopt;
    }
    if (auto error = checkRange()) {
        return error;
    }
    if (_options.maximumBodySize && _response.contentLength > _options.maximumBodySize) {
        return tooLarge();
    }
    return _receiver.begin ? _receiver.begin(_response) : std::nullopt;
}

Status Exchange::checkRange() {
    if (_response.status != 206 || (_request.wanted == WantedBodies::All && !_request.resumption)) {
        return std::nullopt;
    }
    const std::uint64_t offset = offsetToResumeAt(_request);
    const auto start = startOfRange(_receivedHeaders.find("content-range").value_or(""));
    if (offset == 0 || start != offset) {
        return httpError(HttpError::unexpectedRange,
                         host() + " sent a part of the body that was not requested.");
    }
    _response.bodyOffset = offset;
    return std::nullopt;
}

std::size_t Exchange::receiveBytes(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& exchange = *static_cast<Exchange*>(self);
    exchange._error = exchange.receive({bytes, size * count});
    return exchange._error || !exchange._isBodyWanted ? kEndTransfer : size * count;
}

Status Exchange::receive(std::string_view bytes) {
    auto error = takeHead();
    if (error || !_isBodyWanted) {
        return error;
    }
    if (_options.maximumBodySize && bytes.size() > *_options.maximumBodySize - _received) {
        return tooLarge();
    }
    _received += bytes.size();
    _bytesOfPeriods.front() += bytes.size();
    const auto before = Clock::now();
    error = _receiver.receive(bytes);
    // Time that the receiver needs, as for a slow disk, does not count as a stall of the server.
    _periodStart += Clock::now() - before;
    return error;
}

Status Exchange::tooLarge() const {
    return httpError(HttpError::bodyTooLarge, "The response of " + host() + " is larger than the " +
                                                  std::to_string(*_options.maximumBodySize) +
                                                  " bytes allowed.");
}

Status Exchange::failure(CURLcode code) const {
    long verdict = 0;
    curl_easy_getinfo(_easy, CURLINFO_SSL_VERIFYRESULT, &verdict);
    std::string explanation = _message.front() != '\0' ? _message.data() : curl_easy_strerror(code);
    // It may contain the proxy with its password.
    if (const std::size_t place = explanation.find(_proxy);
        !_proxy.empty() && place != _proxy.npos) {
        explanation.replace(place, _proxy.size(), displayedProxy(_proxy));
    }
    return errorOfTransfer({.code = code,
                            .host = host(),
                            .explanation = std::move(explanation),
                            .certificateVerdict = verdict,
                            .connectTimeout = _options.connectTimeout});
}

}  // namespace

Result<HttpExchange> exchangeOverHttp(void* handle, const HttpAddress& address,
                                      const HttpRequest& request, const HttpOptions& options,
                                      const HttpBodyReceiver& receiver) {
    if (handle == nullptr) {
        return httpError(HttpError::unknown, "The request could not be created: out of memory.");
    }
    Exchange exchange(handle, address, request, options, receiver);
    if (auto error = exchange.run()) {
        return error;
    }
    return exchange.takeResult();
}

}  // namespace teravolant::platform
