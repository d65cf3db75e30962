#include "platform/http/http.h"

#include <memory>
#include <utility>

#include <curl/curl.h>

#include "platform/core/deleter.h"
#include "platform/core/text.h"
#include "platform/http/http_address.h"
#include "platform/http/http_error.h"
#include "platform/http/http_exchange.h"

// How it works: a request is a sequence of exchanges on one multi handle, which keeps connections
// alive for the next exchange. Each exchange ends with a response or with the location of a
// redirect. `HttpAddress` decides whether the location may be contacted, `followRedirect` adapts
// method, body and headers, and the loop continues with the next exchange. Both public operations
// stream the body to a receiver; `sendHttpRequest` collects it in a string.
namespace teravolant::platform {
namespace {

using MultiHandle = std::unique_ptr<CURLM, Deleter<curl_multi_cleanup>>;

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

Result<HttpResponse> perform(HttpRequest request, const HttpBodyReceiver& receiver,
                             WantedBodies wanted, const HttpOptions& options,
                             const std::stop_token& stop) {
    const MultiHandle multi(startHttpLibrary() ? curl_multi_init() : nullptr);
    if (!multi) {
        return httpError(HttpError::unknown, "The system's network library can't be used.");
    }
    auto address = HttpAddress::parse(request.url);
    if (!address) {
        return std::move(address).error();
    }
    const std::stop_callback wakeUp(stop, [&multi] { curl_multi_wakeup(multi.get()); });
    HttpAddress current = *std::move(address);
    for (int redirects = 0; redirects <= options.maximumRedirects; ++redirects) {
        auto exchanged =
            exchangeOverHttp(multi.get(), current, request, options, receiver, wanted, stop);
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
                     "More than " + std::to_string(options.maximumRedirects) +
                         " redirects led to " + quoted(current.displayedHost()) +
                         ": they probably form a loop.");
}

}  // namespace

Result<HttpResponse> sendHttpRequest(const HttpRequest& request, const HttpOptions& options,
                                     const std::stop_token& stop) {
    std::string body;
    const HttpBodyReceiver collector{.begin = {}, .receive = [&body](std::string_view bytes) {
                                         body += bytes;
                                         return Status();
                                     }};
    auto result = perform(request, collector, WantedBodies::All, options, stop);
    if (!result) {
        return result;
    }
    HttpResponse response = *std::move(result);
    response.body = std::move(body);
    return response;
}

Result<HttpResponse> streamHttpBody(const HttpRequest& request, const HttpBodyReceiver& receiver,
                                    const HttpOptions& options) {
    return perform(request, receiver, WantedBodies::Contents, options, {});
}

}  // namespace teravolant::platform
