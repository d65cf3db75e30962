#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/http/http.h"
#include "platform/http/http_address.h"

namespace teravolant::platform {

/// Which bodies go to the receiver: those with content (200, 206), or those of every status.
enum class WantedBodies : std::uint8_t { Contents, All };

/// One answer; a redirect's body is never read.
struct HttpExchange {
    HttpResponse response;
    std::optional<std::string> redirect;  ///< Where it leads, unless the answer stands for itself.
};

/// Readies the library, once for the process, on whichever thread comes first. False when it can't
/// be used.
bool startHttpLibrary();

/// Sends the request to the address and takes its answer, whatever URL the request names.
/// `connections` is the library's handle (a CURLM), which a stop request has to wake up.
Result<HttpExchange> exchangeOverHttp(void* connections, const HttpAddress& address,
                                      const HttpRequest& request, const HttpOptions& options,
                                      const HttpBodyReceiver& receiver, WantedBodies wanted,
                                      const std::stop_token& stop);

}  // namespace teravolant::platform
