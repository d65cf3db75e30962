#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/http/http.h"
#include "platform/http/http_address.h"

namespace teravolant::platform {

/// Which bodies the receiver gets: those of 200 and 206 only, or those of every status.
enum class WantedBodies : std::uint8_t { Contents, All };

/// One response. The body of a redirect is not read.
struct HttpExchange {
    HttpResponse response;
    std::optional<std::string> redirect;  ///< The location, if the response is a redirect.
};

/// Initialises libcurl on the first call in the process. Any thread may call it. Returns whether
/// libcurl can be used.
bool startHttpLibrary();

/// Sends the request to `address`, not to the URL in it, and receives the response. `connections`
/// is libcurl's handle (a CURLM); the caller wakes it up (curl_multi_wakeup) when a stop is
/// requested.
Result<HttpExchange> exchangeOverHttp(void* connections, const HttpAddress& address,
                                      const HttpRequest& request, const HttpOptions& options,
                                      const HttpBodyReceiver& receiver, WantedBodies wanted,
                                      const std::stop_token& stop);

}  // namespace teravolant::platform
