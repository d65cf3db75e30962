#include "platform/http/http_exchange.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <utility>

#include <curl/curl.h>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/http/http_error.h"
#include "platform/http/http_failures.h"

namespace teravolant::platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long kReceiveSize = 128L * 1024;
constexpr std::chrono::milliseconds kLongestWait{1000};

struct FreeHandle {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using EasyHandle = std::unique_ptr<CURL, FreeHandle>;
using HeaderList = std::unique_ptr<curl_slist, FreeList>;

/// How far a transfer is; two equal ones in a row mean that nothing moved in between.
struct Progress {
    curl_off_t connected = 0;  ///< Not 0 once the request can be sent.
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

/// The first byte's position in "bytes FIRST-LAST/LENGTH" (RFC 9110, section 14.4).
std::optional<std::uint64_t> startOfRange(std::string_view contentRange) {
    constexpr std::string_view kUnit = "bytes ";
    if (!equalIgnoringCase(contentRange.substr(0, kUnit.size()), kUnit)) {
        return std::nullopt;
    }
    contentRange.remove_prefix(kUnit.size());
    std::uint64_t first = 0;
    const char* end = contentRange.data() + contentRange.size();
    const auto parsed = std::from_chars(contentRange.data(), end, first);
    if (parsed.ec != std::errc() || parsed.ptr == end || *parsed.ptr != '-') {
        return std::nullopt;
    }
    return first;
}

bool fitsIntoAHeader(std::string_view text) {
    return std::ranges::none_of(text, [](char character) {
        return (static_cast<unsigned char>(character) < ' ' && character != '\t') ||
               character == '\x7F';
    });
}

/// The offset to ask for; 0 for the whole. A validator that was damaged where it was kept is none.
std::uint64_t offsetToResumeAt(const HttpRequest& request) {
    const auto& resumption = request.resumption;
    return resumption && !resumption->validator.empty() && fitsIntoAHeader(resumption->validator)
               ? resumption->offset
               : 0;
}

/// One request to one address and its answer; what a redirect leads to is another exchange.
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

    /// Runs to the end of the answer, or to the end of its head where the rest is not wanted.
    Status run(CURLM* multi);

    /// Only after a run without an error.
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
    [[nodiscard]] Error tooLarge() const;
    [[nodiscard]] Error cancelled() const;
    [[nodiscard]] Error failure(CURLcode code) const;
    [[nodiscard]] std::string host() const { return "“" + _address.displayedHost() + "”"; }

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
    Status _error;  ///< Why a callback ended the transfer.
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
    // The library's own notation: a semicolon in the place of the colon when there is no value.
    addLine(header.value.empty() ? header.name + ";" : header.name + ": " + header.value);
}

Status Exchange::prepareHeaders() {
    for (const HttpHeader& header : _request.headers) {
        if (!fitsIntoAHeader(header.name) || !fitsIntoAHeader(header.value)) {
            return httpError(HttpError::unknown,
                             "A header of the request to " + host() + " holds line breaks.");
        }
        addHeader(header);
    }
    if (const std::uint64_t offset = offsetToResumeAt(_request); offset > 0) {
        addHeader({"Range", "bytes=" + std::to_string(offset) + "-"});
        addHeader({"If-Range", _request.resumption->validator});
    }
    // Left out: with it the library holds large bodies back until the server has agreed to them.
    addLine("Expect:");
    set(CURLOPT_HTTPHEADER, _headers.get());
    return std::nullopt;
}

Status Exchange::prepare() {
    if (!_easy) {
        return httpError(HttpError::unknown, "No request could be made: out of memory.");
    }
    set(CURLOPT_CURLU, static_cast<CURLU*>(_address.handle()));
    set(CURLOPT_PROTOCOLS_STR, _address.isSecure() ? "https" : "http");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_ERRORBUFFER, _message.data());
    // Signals belong to the whole program.
    set(CURLOPT_NOSIGNAL, 1L);
    // A name that is still being looked up must not hold up the end of a cancelled transfer.
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
    return _prepared
               ? Status()
               : httpError(HttpError::unknown, "The request to " + host() + " can't be made.");
}

Status Exchange::run(CURLM* multi) {
    if (auto error = prepare()) {
        return error;
    }
    if (curl_multi_add_handle(multi, _easy.get()) != CURLM_OK) {
        return httpError(HttpError::unknown, "The request to " + host() + " can't be sent.");
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
        return httpError(HttpError::timedOut, host() +
                                                  " went silent: nothing was transferred for " +
                                                  secondsText(_options.stallTimeout) + " seconds.");
    }
    if (_hasHead && !_isBodyWanted) {
        return std::nullopt;
    }
    return *end == CURLE_OK ? takeHead() : failure(*end);
}

/// The library's verdict on the finished transfer; nothing when it was cancelled or stalled.
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

/// Before the connection stands, the library's own limit on connecting holds.
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

/// Judges the answer's head, once it is complete.
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
                         host() + " gave an answer that is not HTTP (its status is " +
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
                         host() + " answered with a part that was not asked for.");
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
    // The receiver's own time, as on a slow disk, is not the server's.
    _lastProgress = Clock::now();
    return error;
}

Error Exchange::tooLarge() const {
    return httpError(HttpError::bodyTooLarge, "The answer of " + host() + " is larger than the " +
                                                  std::to_string(*_options.maximumBodySize) +
                                                  " bytes that are allowed.");
}

Error Exchange::cancelled() const {
    return httpError(HttpError::cancelled, "The transfer from " + host() + " was cancelled.");
}

Error Exchange::failure(CURLcode code) const {
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
