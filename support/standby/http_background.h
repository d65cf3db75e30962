#pragma once

#include <functional>

#include "platform/core/http_message.h"
#include "platform/core/result.h"

namespace teravolant {

/// Sends the request through the confined program `fetch` on a new thread and returns at once.
/// `complete` receives the result on the main thread, from the main queue of the shared application
/// object, which must exist. If the request cannot be started, the result is that error. When the
/// process exits, the request ends without waiting for the server, and `complete` is not called.
void sendHttpRequestInBackground(
    platform::HttpRequest request, platform::HttpOptions options,
    std::function<void(const platform::Result<platform::HttpResponse>&)> complete);

}  // namespace teravolant
