#include "platform/http/http_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <curl/curl.h>

#include "platform/core/deleter.h"
#include "platform/core/error.h"
#include "platform/core/http_error.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

using Handle = std::unique_ptr<void, void (*)(void*)>;

CURLU* curlUrl(const Handle& handle) { return static_cast<CURLU*>(handle.get()); }

Handle owned(CURLU* handle) {
    return {handle, [](void* url) { curl_url_cleanup(static_cast<CURLU*>(url)); }};
}

/// Returns an empty text if the URL does not have the part.
std::string partOf(CURLU* url, CURLUPart part, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url, part, &text, flags) != CURLUE_OK) {
        return {};
    }
    const std::unique_ptr<char, Deleter<curl_free>> owner(text);
    return text;
}

}  // namespace

bool isLoopbackHost(std::string_view host) {
    if (equalIgnoringCase(host, "localhost")) {
        return true;
    }
    in_addr four{};
    if (inet_pton(AF_INET, std::string(host).c_str(), &four) == 1) {
        return ntohl(four.s_addr) >> 24U == IN_LOOPBACKNET;
    }
    if (!host.starts_with('[') || !host.ends_with(']')) {
        return false;
    }
    in6_addr six{};
    const std::string inner(host.substr(1, host.size() - 2));
    return inet_pton(AF_INET6, inner.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
}

HttpAddress::HttpAddress(Handle handle)
    : _handle(std::move(handle)),
      _url(partOf(curlUrl(_handle), CURLUPART_URL)),
      _host(partOf(curlUrl(_handle), CURLUPART_HOST)),
      _port(partOf(curlUrl(_handle), CURLUPART_PORT, CURLU_DEFAULT_PORT)),
      _isSecure(equalIgnoringCase(partOf(curlUrl(_handle), CURLUPART_SCHEME), "https")),
      _isLoopback(isLoopbackHost(_host)) {
    const std::string port = partOf(curlUrl(_handle), CURLUPART_PORT);
    _displayedHost = port.empty() ? _host : _host + ":" + port;
}

Result<HttpAddress> HttpAddress::checked(Handle handle) {
    const std::string scheme = partOf(curlUrl(handle), CURLUPART_SCHEME);
    HttpAddress address(std::move(handle));
    if (!address._isSecure && !equalIgnoringCase(scheme, "http")) {
        return httpError(HttpError::unsupportedUrl, "Addresses that begin with " +
                                                        quoted(scheme + ":") +
                                                        " are not supported: only https is safe.");
    }
    if (address._url.empty() || address._host.empty()) {
        return httpError(HttpError::badUrl, "The address does not contain a host.");
    }
    if (!address._isSecure && !address._isLoopback) {
        return httpError(
            HttpError::unsupportedUrl,
            quoted(address._displayedHost) + " is not asked over plain http: only https is safe.");
    }
    return address;
}

Result<HttpAddress> HttpAddress::parse(const std::string& url) {
    Handle handle = owned(curl_url());
    if (!handle || curl_url_set(curlUrl(handle), CURLUPART_URL, url.c_str(),
                                CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
        return httpError(HttpError::badUrl, "The address of the server is malformed.");
    }
    return checked(std::move(handle));
}

Result<HttpAddress> HttpAddress::redirectedTo(const std::string& location) const {
    Handle handle = owned(curl_url_dup(curlUrl(_handle)));
    if (!handle || curl_url_set(curlUrl(handle), CURLUPART_URL, location.c_str(),
                                CURLU_NON_SUPPORT_SCHEME | CURLU_URLENCODE) != CURLUE_OK) {
        return httpError(HttpError::badResponse,
                         quoted(_displayedHost) + " redirects to a malformed address.");
    }
    auto next = checked(std::move(handle));
    if (!next || (_isSecure && !next->_isSecure)) {
        return httpError(HttpError::unsupportedUrl,
                         quoted(_displayedHost) +
                             " redirects to an address that is not safe to follow: " +
                             (next ? quoted(next->_displayedHost) + " over plain http."
                                   : next.error().localizedDescription));
    }
    return next;
}

bool HttpAddress::hasSameOriginAs(const HttpAddress& other) const {
    return _isSecure == other._isSecure && equalIgnoringCase(_host, other._host) &&
           _port == other._port;
}

}  // namespace teravolant::platform
