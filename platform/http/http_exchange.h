#pragma once

#include <optional>
#include <string>

#include "platform/core/http_message.h"
#include "platform/http/http_address.h"

namespace teravolant::platform {

/// One response. The body of a redirect is not read.
struct HttpExchange {
    HttpResponse response;
    std::optional<std::string> redirect;  ///< The location, if the response is a redirect.
};

/// Sends the request to `address`, not to the URL in it, and receives the response. `handle` is
/// libcurl's (a CURL) or null; its connections are used again.
Result<HttpExchange> exchangeOverHttp(void* handle, const HttpAddress& address,
                                      const HttpRequest& request, const HttpOptions& options,
                                      const HttpBodyReceiver& receiver);

}  // namespace teravolant::platform
