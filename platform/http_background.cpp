#include <atomic>
#include <list>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/application.h"
#include "platform/http.h"
#include "platform/http_exchange.h"
#include "platform/http_failures.h"

namespace teravolant::platform {
namespace {

/// The requests that are under way, each on a thread of its own.
///
/// At an exit of the process they are cancelled and waited for: the library below them must not be
/// cleaned up while they use it. That happens in the opposite order of the starts, so the library
/// is started first.
class BackgroundRequests {
  public:
    static BackgroundRequests& ofThisProcess() {
        static BackgroundRequests requests;
        return requests;
    }

    /// Throws `std::system_error` when there can be no further thread.
    void start(std::function<void(const std::stop_token&)> work) {
        const std::lock_guard lock(_mutex);
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

    BackgroundRequests(const BackgroundRequests&) = delete;
    BackgroundRequests& operator=(const BackgroundRequests&) = delete;

  private:
    struct Request {
        std::atomic<bool> isDone = false;
        std::jthread thread;
    };

    BackgroundRequests() { startHttpLibrary(); }
    ~BackgroundRequests() {
        for (Request& request : _requests) {
            request.thread.request_stop();
        }
    }

    std::mutex _mutex;
    std::list<Request> _requests;
};

}  // namespace

void sendHttpRequestInBackground(HttpRequest request, HttpOptions options,
                                 std::function<void(const Result<HttpResponse>&)> complete) {
    Application& application = Application::sharedApplication();
    const auto finish = [&application,
                         complete = std::move(complete)](Result<HttpResponse> answer) {
        application.dispatchAsyncOnMainQueue(
            [complete, answer = std::move(answer)] { complete(answer); });
    };
    try {
        BackgroundRequests::ofThisProcess().start(
            [request = std::move(request), options, finish](const std::stop_token& stop) {
                finish(sendHttpRequest(request, options, stop));
            });
    } catch (const std::system_error& failure) {
        finish(httpError(NSURLErrorUnknown,
                         std::string("The request could not be started: ") + failure.what()));
    }
}

}  // namespace teravolant::platform
