// Performs a request as a sequence of exchanges on one easy handle, which keeps connections alive
// for the next exchange. Each exchange ends with a response or with the location of a redirect.
// `HttpAddress` decides whether the location may be contacted, `followRedirect` adapts method, body
// and headers, and the loop continues with the next exchange.
#include "platform/http/http.h"

#include <memory>
#include <utility>

#include <curl/curl.h>

#include "platform/core/deleter.h"
#include "platform/core/http_error.h"
#include "platform/core/text.h"
#include "platform/http/curl_library.h"
#include "platform/http/http_address.h"
#include "platform/http/http_exchange.h"

namespace teravolant::platform {
namespace {

using EasyHandle = std::unique_ptr<CURL, Deleter<curl_easy_cleanup>>;

bool carriesCredentials(const HttpHeader& header) {
    return equalIgnoringCase(header.name, "Authorization") ||
           equalIgnoringCase(header.name, "Cookie");
}

bool describesTheBody(const HttpHeader& header) {
    return equalIgnoringCase(header.name.substr(0, 8), "Content-");
}

/// Adapts the request to the redirect that it follows (RFC 9110, section 15.4).
void followRedirect(HttpRequest& request, int status, bool sameOrigin) {
    if (status != 307 && status != 308 && request.method == HttpMethod::Post) {
        request.method = HttpMethod::Get;
        request.body.clear();
        std::erase_if(request.headers, describesTheBody);
    }
    if (!sameOrigin) {
        std::erase_if(request.headers, carriesCredentials);
    }
}

}  // namespace

Result<HttpResponse> transferOverHttp(const HttpRequest& original, const HttpBodyReceiver& receiver,
                                      const HttpOptions& options) {
    if (auto error = loadCurl()) {
        return error;
    }
    HttpRequest request = original;
    auto address = HttpAddress::parse(request.url);
    if (!address) {
        return std::move(address).error();
    }
    const EasyHandle easy(curl_easy_init());
    HttpAddress current = *std::move(address);
    for (int redirects = 0; redirects <= kMaximumRedirects; ++redirects) {
        auto exchanged = exchangeOverHttp(easy.get(), current, request, options, receiver);
        if (!exchanged) {
            return std::move(exchanged).error();
        }
        HttpExchange exchange = *std::move(exchanged);
        if (!exchange.redirect) {
            return std::move(exchange.response);
        }
        auto next = current.redirectedTo(*exchange.redirect);
        if (!next) {
            return std::move(next).error();
        }
        followRedirect(request, exchange.response.status, next->hasSameOriginAs(current));
        current = *std::move(next);
    }
    return httpError(HttpError::tooManyRedirects,
                     "More than " + std::to_string(kMaximumRedirects) + " redirects led to " +
                         quoted(current.displayedHost()) + ": they probably form a loop.");
}

}  // namespace teravolant::platform
