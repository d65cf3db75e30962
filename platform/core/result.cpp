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

}  // namespace teravolant::platform
