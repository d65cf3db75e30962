#include "platform/core/result.h"

#include "platform/core/error.h"

namespace teravolant::platform {

Status::Status(const Error& error) : _error(new Error(error)) {}

Status::Status(Error&& error) : _error(new Error(std::move(error))) {}

Status::Status(const Status& other) : _error(other._error ? new Error(*other._error) : nullptr) {}

Status& Status::operator=(const Status& other) {
    Status copy(other);
    return *this = std::move(copy);
}

void Status::Delete::operator()(const Error* error) const { delete error; }

std::string printedForm(const Error& error) {
    std::string text = "Error Domain=" + error.domain + " Code=" + std::to_string(error.code) +
                       " \"" + error.localizedDescription + "\"";
    if (const Error* const underlying = error.underlyingError()) {
        text += " UserInfo={" + std::string(NSUnderlyingErrorKey) + "=" + printedForm(*underlying) +
                "}";
    }
    return text;
}

}  // namespace teravolant::platform
