#include "platform/http/http_exchange.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <utility>

#include <curl/curl.h>

#include "platform/core/deleter.h"
#include "platform/core/text.h"
#include "platform/http/http_error.h"
#include "platform/http/http_failures.h"
#include "platform/http/http_resumption.h"

// How it works: an exchange adds one easy handle to a multi handle of libcurl and alternates
// between curl_multi_perform, which moves bytes without blocking, and curl_multi_poll, which blocks
// until a socket is ready, the poll time is over or a stop request calls curl_multi_wakeup.
//
// After each step, the loop compares the transfer's counters with their last values. If none of
// them changes for the stall timeout, the transfer has stalled. libcurl's own low-speed limit has a
// resolution of whole seconds.
//
// libcurl passes body bytes to `receiveBytes`, on the thread of the loop. The first bytes show that
// the head is complete: `takeHead` checks it then, or at the end of a response without a body. A
// callback ends the transfer when it returns CURL_WRITEFUNC_ERROR: either after an error, which it
// leaves in `_error` and which takes precedence over libcurl's result, or because the body is not
// wanted, which is a success. Redirects are not left to libcurl, because each target has to pass
// `HttpAddress` before it is contacted: the exchange ends with the head of the redirect and
// returns its location.
namespace teravolant::platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long kReceiveSize = 128L * 1024;
constexpr std::chrono::milliseconds kLongestWait{1000};

using EasyHandle = std::unique_ptr<CURL, Deleter<curl_easy_cleanup>>;
using HeaderList = std::unique_ptr<curl_slist, Deleter<curl_slist_free_all>>;

/// The counters of a transfer. They differ after any byte was sent or received.
struct Progress {
    curl_off_t connected = 0;  ///< Microseconds until the connection was ready; 0 before.
    curl_off_t sent = 0;
    curl_off_t received = 0;
    long requestSize = 0;
    long headerSize = 0;

    bool operator==(const Progress&) const = default;
};

Progress progressOf(CURL* easy) {
    Progress progress;
    curl_easy_getinfo(easy, CURLINFO_PRETRANSFER_TIME_T, &progress.connected);
    curl_easy_getinfo(easy, CURLINFO_SIZE_UPLOAD_T, &progress.sent);
    curl_easy_getinfo(easy, CURLINFO_SIZE_DOWNLOAD_T, &progress.received);
    curl_easy_getinfo(easy, CURLINFO_REQUEST_SIZE, &progress.requestSize);
    curl_easy_getinfo(easy, CURLINFO_HEADER_SIZE, &progress.headerSize);
    return progress;
}

bool isRedirect(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

/// One request to one address and its response. The target of a redirect is another exchange.
class Exchange {
  public:
    Exchange(const HttpAddress& address, const HttpRequest& request, const HttpOptions& options,
             const HttpBodyReceiver& receiver, WantedBodies wanted, const std::stop_token& stop)
        : _address(address),
          _request(request),
          _options(options),
          _receiver(receiver),
          _wanted(wanted),
          _stop(stop) {}

    /// Blocks until the end of the response, or of its head if the body is not wanted.
    Status run(CURLM* multi);

    /// Called once, after `run` has succeeded.
    HttpExchange takeResult() { return {std::move(_response), std::move(_redirect)}; }

  private:
    Status prepare();
    Status prepareHeaders();
    void addLine(const std::string& line);
    void addHeader(const HttpHeader& header);
    template <typename Value>
    void set(CURLoption option, Value value) {
        _prepared = _prepared && curl_easy_setopt(_easy.get(), option, value) == CURLE_OK;
    }

    std::optional<CURLcode> waitForEnd(CURLM* multi);
    [[nodiscard]] bool hasStalled();

    Status takeHead();
    Status checkRange();
    [[nodiscard]] std::optional<std::string> header(const char* name) const;
    static std::size_t receiveBytes(char* bytes, std::size_t size, std::size_t count, void* self);
    Status receive(std::string_view bytes);
    [[nodiscard]] Status tooLarge() const;
    [[nodiscard]] Status cancelled() const;
    [[nodiscard]] Status failure(CURLcode code) const;
    [[nodiscard]] std::string host() const { return quoted(_address.displayedHost()); }

    const HttpAddress& _address;
    const HttpRequest& _request;
    const HttpOptions& _options;
    const HttpBodyReceiver& _receiver;
    WantedBodies _wanted;
    const std::stop_token& _stop;

    HeaderList _headers;
    std::array<char, CURL_ERROR_SIZE> _message{};
    EasyHandle _easy{curl_easy_init()};
    bool _prepared = true;

    Progress _progress;
    Clock::time_point _lastProgress = Clock::now();

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

Status Exchange::prepare() {
    if (!_easy) {
        return httpError(HttpError::unknown, "The request could not be created: out of memory.");
    }
    set(CURLOPT_CURLU, static_cast<CURLU*>(_address.handle()));
    set(CURLOPT_PROTOCOLS_STR, _address.isSecure() ? "https" : "http");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_ERRORBUFFER, _message.data());
    // Signal handlers belong to the program, not to a library.
    set(CURLOPT_NOSIGNAL, 1L);
    // Do not wait for a pending DNS look-up when a transfer is cancelled.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(_options.connectTimeout.count()));
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    set(CURLOPT_BUFFERSIZE, kReceiveSize);
    set(CURLOPT_WRITEFUNCTION, &Exchange::receiveBytes);
    set(CURLOPT_WRITEDATA, this);
    if (const char* file = std::getenv("SSL_CERT_FILE"); file != nullptr && *file != '\0') {
        set(CURLOPT_CAINFO, file);
    }
    if (_address.isLoopback()) {
        set(CURLOPT_PROXY, "");
    }
    if (_request.method == HttpMethod::Post) {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDS, _request.body.data());
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(_request.body.size()));
    }
    if (auto error = prepareHeaders()) {
        return error;
    }
    return _prepared ? Status()
                     : httpError(HttpError::unknown,
                                 "The request to " + host() + " could not be created.");
}

Status Exchange::run(CURLM* multi) {
    if (auto error = prepare()) {
        return error;
    }
    if (curl_multi_add_handle(multi, _easy.get()) != CURLM_OK) {
        return httpError(HttpError::unknown, "The request to " + host() + " could not be sent.");
    }
    const auto end = waitForEnd(multi);
    curl_multi_remove_handle(multi, _easy.get());
    if (_error) {
        return _error;
    }
    if (_stop.stop_requested()) {
        return cancelled();
    }
    if (!end) {
        return httpError(HttpError::timedOut,
                         host() + " stopped responding: nothing was transferred for " +
                             secondsText(_options.stallTimeout) + " seconds.");
    }
    if (_hasHead && !_isBodyWanted) {
        return std::nullopt;
    }
    return *end == CURLE_OK ? takeHead() : failure(*end);
}

/// Returns libcurl's result of the transfer, or nothing if it was cancelled or stalled.
std::optional<CURLcode> Exchange::waitForEnd(CURLM* multi) {
    while (true) {
        int running = 0;
        if (curl_multi_perform(multi, &running) != CURLM_OK) {
            return CURLE_FAILED_INIT;
        }
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
            if (message->msg == CURLMSG_DONE) {
                return message->data.result;
            }
        }
        if (_stop.stop_requested() || hasStalled()) {
            return std::nullopt;
        }
        const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(
            _lastProgress + _options.stallTimeout - Clock::now());
        const auto wait = std::clamp(remaining, std::chrono::milliseconds(1), kLongestWait);
        curl_multi_poll(multi, nullptr, 0, static_cast<int>(wait.count()), nullptr);
    }
}

/// Until the connection is established, libcurl enforces the connect timeout instead.
bool Exchange::hasStalled() {
    const Progress now = progressOf(_easy.get());
    if (now != _progress || now.connected == 0) {
        _progress = now;
        _lastProgress = Clock::now();
    }
    return Clock::now() - _lastProgress >= _options.stallTimeout;
}

std::optional<std::string> Exchange::header(const char* name) const {
    curl_header* found = nullptr;
    if (curl_easy_header(_easy.get(), name, 0, CURLH_HEADER, -1, &found) != CURLHE_OK) {
        return std::nullopt;
    }
    return found->value;
}

/// Reads and checks the complete head of the response. Does nothing when called again.
Status Exchange::takeHead() {
    if (std::exchange(_hasHead, true)) {
        return std::nullopt;
    }
    long status = 0;
    curl_off_t length = -1;
    curl_easy_getinfo(_easy.get(), CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(_easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    if (status < 100 || status > 999) {
        return httpError(HttpError::badResponse,
                         host() + " sent a response that is not HTTP (its status is " +
                             std::to_string(status) + ").");
    }
    _response.status = static_cast<int>(status);
    _response.url = _address.url();
    _response.entityTag = header("ETag");
    _response.lastModified = header("Last-Modified");
    _response.contentRange = header("Content-Range");
    if (length >= 0) {
        _response.contentLength = static_cast<std::uint64_t>(length);
    }
    if (isRedirect(_response.status)) {
        _redirect = header("Location");
    }
    const bool isContent = _response.status == 200 || _response.status == 206;
    _isBodyWanted = !_redirect && (_wanted == WantedBodies::All || isContent);
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
    if (_response.status != 206 || (_wanted == WantedBodies::All && !_request.resumption)) {
        return std::nullopt;
    }
    const std::uint64_t offset = offsetToResumeAt(_request);
    const auto start = startOfRange(_response.contentRange.value_or(""));
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
    return exchange._error || !exchange._isBodyWanted ? CURL_WRITEFUNC_ERROR : size * count;
}

Status Exchange::receive(std::string_view bytes) {
    if (_stop.stop_requested()) {
        return cancelled();
    }
    auto error = takeHead();
    if (error || !_isBodyWanted) {
        return error;
    }
    if (_options.maximumBodySize && bytes.size() > *_options.maximumBodySize - _received) {
        return tooLarge();
    }
    _received += bytes.size();
    error = _receiver.receive(bytes);
    // Time that the receiver needs, as for a slow disk, does not count as a stall of the server.
    _lastProgress = Clock::now();
    return error;
}

Status Exchange::tooLarge() const {
    return httpError(HttpError::bodyTooLarge, "The response of " + host() + " is larger than the " +
                                                  std::to_string(*_options.maximumBodySize) +
                                                  " bytes allowed.");
}

Status Exchange::cancelled() const {
    return httpError(HttpError::cancelled, "The transfer from " + host() + " was cancelled.");
}

Status Exchange::failure(CURLcode code) const {
    long verdict = 0;
    curl_easy_getinfo(_easy.get(), CURLINFO_SSL_VERIFYRESULT, &verdict);
    return errorOfTransfer(
        {.code = code,
         .host = _address.displayedHost(),
         .explanation = _message.front() != '\0' ? _message.data() : curl_easy_strerror(code),
         .certificateVerdict = verdict,
         .connectTimeout = _options.connectTimeout});
}

}  // namespace

bool startHttpLibrary() {
    static const bool started = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return started;
}

Result<HttpExchange> exchangeOverHttp(void* connections, const HttpAddress& address,
                                      const HttpRequest& request, const HttpOptions& options,
                                      const HttpBodyReceiver& receiver, WantedBodies wanted,
                                      const std::stop_token& stop) {
    Exchange exchange(address, request, options, receiver, wanted, stop);
    if (auto error = exchange.run(connections)) {
        return std::move(*error);
    }
    return exchange.takeResult();
}

}  // namespace teravolant::platform
