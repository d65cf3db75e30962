#pragma once

#include <functional>

#include "platform/core/result.h"
#include "platform/http/http.h"

namespace teravolant {

/// Like `platform::sendHttpRequest`, but on a new thread: returns at once. `complete` receives the
/// result on the main queue of the shared application object, which the program must have created.
/// When the process exits, it cancels the request and does not wait for the server.
void sendHttpRequestInBackground(
    platform::HttpRequest request, platform::HttpOptions options,
    std::function<void(const platform::Result<platform::HttpResponse>&)> complete);

}  // namespace teravolant
