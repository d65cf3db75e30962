#include "support/standby/http_background.h"

#include <atomic>
#include <cstdlib>
#include <exception>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/core/error.h"
#include "platform/http/http.h"
#include "platform/http/http_error.h"
#include "platform/http/http_exchange.h"
#include "platform/http/http_failures.h"
#include "platform/system/application.h"

namespace teravolant {
namespace {

using platform::HttpOptions;
using platform::HttpRequest;
using platform::HttpResponse;
using platform::Result;

/// The requests that are under way, each on a thread of its own.
///
/// At an exit of the process they are cancelled and waited for, and no other ones begin: the
/// library below them must not be cleaned up while they use it. What an exit does is done in the
/// opposite order of the beginnings, so the library is started first. The object itself stays:
/// other threads may come here while the process ends.
class BackgroundRequests {
  public:
    static BackgroundRequests& ofThisProcess() {
        static BackgroundRequests& requests = *new BackgroundRequests();
        return requests;
    }

    /// Throws `std::system_error` when there can be no further thread.
    void start(std::function<void(const std::stop_token&)> work) {
        const std::lock_guard lock(_mutex);
        if (_hasEnded) {
            return;
        }
        _requests.remove_if([](const Request& request) { return request.isDone.load(); });
        Request& request = _requests.emplace_back();
        try {
            request.thread =
                std::jthread([&request, work = std::move(work)](const std::stop_token& stop) {
                    work(stop);
                    request.isDone = true;
                });
        } catch (...) {
            _requests.pop_back();
            throw;
        }
    }

  private:
    struct Request {
        std::atomic<bool> isDone = false;
        std::jthread thread;
    };

    BackgroundRequests() {
        platform::startHttpLibrary();
        std::atexit([] { ofThisProcess().end(); });
    }

    void end() {
        std::list<Request> requests;
        {
            const std::lock_guard lock(_mutex);
            _hasEnded = true;
            requests.swap(_requests);
        }
        for (Request& request : requests) {
            request.thread.request_stop();
        }
    }

    std::mutex _mutex;
    bool _hasEnded = false;
    std::list<Request> _requests;
};

/// The answer, or why there is none: on a thread of its own nothing may be thrown.
Result<HttpResponse> answerTo(const HttpRequest& request, const HttpOptions& options,
                              const std::stop_token& stop) {
    try {
        return sendHttpRequest(request, options, stop);
    } catch (const std::exception& failure) {
        return platform::httpError(platform::HttpError::unknown,
                                   std::string("The request was given up: ") + failure.what());
    }
}

}  // namespace

void sendHttpRequestInBackground(HttpRequest request, HttpOptions options,
                                 std::function<void(const Result<HttpResponse>&)> complete) {
    platform::Application& application = platform::Application::sharedApplication();
    const auto finish = [&application,
                         complete = std::move(complete)](Result<HttpResponse> answer) {
        application.dispatchAsyncOnMainQueue(
            [complete, answer = std::move(answer)] { complete(answer); });
    };
    try {
        BackgroundRequests::ofThisProcess().start(
            [request = std::move(request), options, finish](const std::stop_token& stop) {
                finish(answerTo(request, options, stop));
            });
    } catch (const std::exception& failure) {
        finish(platform::httpError(
            platform::HttpError::unknown,
            std::string("The request could not be started: ") + failure.what()));
    }
}

}  // namespace teravolant
