#include "update_framework/feed_download.h"

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/system/fetch_program.h"
#include "platform/system/operating_system.h"
#include "update_framework/retry_schedule.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

/// Repeats the request until it has a response that is not transient.
Result<HttpResponse> requestFeed(const UpdateCycle& cycle) {
    RetrySchedule schedule(cycle.now());
    const HttpRequest request{
        .url = cycle.feedURL,
        .headers = {{"User-Agent", userAgent("Teravolant", cycle.installation.bundleVersion)}}};
    HttpOptions options = cycle.transfer;
    options.maximumBodySize = kLargestFeed;
    while (true) {
        auto response = sendHttpRequest(request, options, transferInProgram);
        if (response ? !isTransient(response->status) : !isTransient(response.error())) {
            return response;
        }
        const Error error =
            response ? *unexpectedStatus("the update feed", *response) : response.error();
        const auto next =
            schedule.next(cycle.now(), response ? response->retryAfter : std::nullopt);
        if (!next) {
            return error;
        }
        if (auto failure = pauseBeforeRetry(cycle, *next, error)) {
            return failure;
        }
    }
}

}  // namespace

Result<std::optional<std::string>> downloadFeed(const UpdateCycle& cycle) {
    auto response = requestFeed(cycle);
    return response ? feedIn(*std::move(response)) : response.error();
}

Status pauseBeforeRetry(const UpdateCycle& cycle, Clock::Time next, const Error& error) {
    const auto pause = std::chrono::ceil<std::chrono::seconds>(next - cycle.now());
    cycle.log("trying again in " + std::to_string(pause.count()) +
              " s: " + escaped(error.localizedDescription));
    return cycle.pauseUntil(next);
}

Status unexpectedStatus(const std::string& what, const HttpResponse& response) {
    const bool isEmpty = response.status == 200;
    return updaterError(
        SQRLUpdaterErrorInvalidServerResponse,
        "The server responded to the request for " + what + " with status " +
            std::to_string(response.status) + (isEmpty ? " and an empty body: " : ": ") +
            escaped(response.url) +
            (response.proxy.empty() ? "" : " (through the proxy " + quoted(response.proxy) + ")"));
}

Result<std::optional<std::string>> feedIn(HttpResponse response) {
    if (response.status == 204) {
        return std::optional<std::string>();
    }
    if (response.status != 200 || response.body.empty()) {
        return unexpectedStatus("the update feed", response);
    }
    return std::optional(std::move(response.body));
}

}  // namespace teravolant::platform
