#include "support/standby/http_background.h"

#include <atomic>
#include <cstdlib>
#include <exception>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/http/http.h"
#include "platform/http/http_error.h"
#include "platform/http/http_exchange.h"
#include "platform/system/application.h"

// How it works: every request runs on a thread of its own, which queues the result on the main
// queue. The list of requests owns the threads; each new request removes those that are done.
//
// At exit, no request may use the HTTP library while the library cleans up. Exit handlers run in
// the reverse order of their registration, so the list starts the library first and then registers
// its own handler. That handler refuses new requests, stops the running ones and joins their
// threads. The list itself is never destroyed: other threads may still call it while the process
// exits.
namespace teravolant {
namespace {

using platform::HttpOptions;
using platform::HttpRequest;
using platform::HttpResponse;
using platform::Result;

/// The running requests and their threads. All operations may be called from any thread.
class BackgroundRequests {
  public:
    static BackgroundRequests& ofThisProcess() {
        static BackgroundRequests& requests = *new BackgroundRequests();
        return requests;
    }

    /// Runs `work` on a new thread, or drops it if the process is exiting. Throws
    /// `std::system_error` if no thread can be started.
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
        // Stop all of them before the list's destructor joins them one by one.
        for (Request& request : requests) {
            request.thread.request_stop();
        }
    }

    std::mutex _mutex;
    bool _hasEnded = false;
    std::list<Request> _requests;
};

/// Turns exceptions into errors: an exception that leaves a thread terminates the process.
Result<HttpResponse> responseTo(const HttpRequest& request, const HttpOptions& options,
                                const std::stop_token& stop) {
    try {
        return sendHttpRequest(request, options, stop);
    } catch (const std::exception& failure) {
        return platform::httpError(platform::HttpError::unknown,
                                   std::string("The request failed: ") + failure.what());
    }
}

}  // namespace

void sendHttpRequestInBackground(HttpRequest request, HttpOptions options,
                                 std::function<void(const Result<HttpResponse>&)> complete) {
    platform::Application& application = platform::Application::sharedApplication();
    const auto finish = [&application,
                         complete = std::move(complete)](Result<HttpResponse> response) {
        application.dispatchAsyncOnMainQueue(
            [complete, response = std::move(response)] { complete(response); });
    };
    try {
        BackgroundRequests::ofThisProcess().start(
            [request = std::move(request), options, finish](const std::stop_token& stop) {
                finish(responseTo(request, options, stop));
            });
    } catch (const std::exception& failure) {
        finish(platform::httpError(
            platform::HttpError::unknown,
            std::string("The request could not be started: ") + failure.what()));
    }
}

}  // namespace teravolant
