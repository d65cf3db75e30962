#include "platform/core/http_message.h"

#include <algorithm>
#include <utility>

#include "platform/core/error.h"
#include "platform/core/http_error.h"

namespace teravolant::platform {

Status httpError(HttpError::Code code, std::string description) {
    return Error{.domain = std::string(kHttpErrorDomain),
                 .code = code,
                 .localizedDescription = std::move(description)};
}

Result<HttpResponse> sendHttpRequest(const HttpRequest& request, const HttpOptions& options,
                                     HttpTransfer& transfer) {
    std::string body;
    const HttpBodyReceiver collector{.receive = [&body](std::string_view bytes) {
        body += bytes;
        return Status();
    }};
    auto response = transfer(request, collector, options);
    if (response) {
        response->body = std::move(body);
    }
    return response;
}

std::string resumptionValidator(const HttpResponse& response) {
    if (response.entityTag && response.entityTag->starts_with('"')) {
        return *response.entityTag;
    }
    return response.lastModified.value_or("");
}

std::uint64_t offsetToResumeAt(const HttpRequest& request) {
    const auto& resumption = request.resumption;
    return resumption && !resumption->validator.empty() && isHeaderText(resumption->validator)
               ? resumption->offset
               : 0;
}

bool isHeaderText(std::string_view text) {
    return std::ranges::none_of(text, [](char character) {
        return (static_cast<unsigned char>(character) < ' ' && character != '\t') ||
               character == '\x7F';
    });
}

}  // namespace teravolant::platform
