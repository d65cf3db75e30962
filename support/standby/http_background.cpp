#include "support/standby/http_background.h"

#include <exception>
#include <thread>
#include <utility>

#include "platform/core/http_error.h"
#include "platform/system/application.h"
#include "platform/system/fetch_program.h"

namespace teravolant {

using platform::HttpResponse;
using platform::Result;

// How it works: every request runs on a detached thread, which queues the result on the main queue.
// When the process exits, the kernel ends the threads and the programs that they started.
void sendHttpRequestInBackground(platform::HttpRequest request, platform::HttpOptions options,
                                 std::function<void(const Result<HttpResponse>&)> complete) {
    platform::Application& application = platform::Application::sharedApplication();
    const auto finish = [&application,
                         complete = std::move(complete)](Result<HttpResponse> response) {
        application.dispatchAsyncOnMainQueue(
            [complete, response = std::move(response)] { complete(response); });
    };
    const auto failed = [](const std::exception& failure) {
        return platform::httpError(platform::HttpError::unknown,
                                   std::string("The request failed: ") + failure.what());
    };
    try {
        std::thread([request = std::move(request), options = std::move(options), finish, failed] {
            // An exception that leaves a thread terminates the process.
            try {
                finish(sendHttpRequest(request, options, platform::transferInProgram));
            } catch (const std::exception& exception) {
                finish(failed(exception));
            }
        }).detach();
    } catch (const std::exception& exception) {
        finish(failed(exception));
    }
}

}  // namespace teravolant
