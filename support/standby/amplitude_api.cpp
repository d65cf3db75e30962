#include "support/standby/amplitude_api.h"

#include <cstdint>
#include <string>
#include <utility>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/system/console_log.h"
#include "platform/system/operating_system.h"
#include "support/standby/http_background.h"

namespace teravolant {
namespace {

using platform::HttpResponse;
using platform::Result;

/// Far above the size of the service's responses; bounds the memory that a server can fill.
constexpr std::uint64_t kMaximumResponseSize = 1048576;

std::string textOf(const Result<HttpResponse>& response) {
    if (!response) {
        return response.error().localizedDescription;
    }
    const std::string& body = response->body;
    return platform::isValidUtf8(body) ? body : platform::kMissingValueMark;
}

}  // namespace

void AmplitudeApi::sendEvent(const AmplitudeEvent* event, std::string_view host) {
    if (event == nullptr) {
        return;
    }
    platform::HttpRequest request{
        .url = "https://" + std::string(host) + "/2/httpapi",
        .method = platform::HttpMethod::Post,
        .headers = {{"Content-Type", "application/json"},
                    {"Accept", "application/json"},
                    {"User-Agent",
                     platform::userAgent("Teravolant", AmplitudeEvent::getAppVersion())}},
        .body = event->dataValue().value_or("")};
    sendHttpRequestInBackground(std::move(request), {.maximumBodySize = kMaximumResponseSize},
                                &AmplitudeApi::answerReceived);
}

void AmplitudeApi::answerReceived(const Result<HttpResponse>& response) {
    platform::logToConsole("AmplitudeApi::answerReceived " + textOf(response));
}

}  // namespace teravolant
