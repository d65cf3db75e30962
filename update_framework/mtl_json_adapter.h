#pragma once

#include <cstdint>
#include <string_view>

#include "platform/core/result.h"
#include "platform/values/value.h"

namespace teravolant::platform {

inline constexpr std::string_view MTLJSONAdapterErrorDomain = "MTLJSONAdapterErrorDomain";

enum MTLJSONAdapterErrorCode : std::int64_t {
    MTLJSONAdapterErrorMissingMember = 1,
    MTLJSONAdapterErrorInvalidMember = 2,
};

/// Converts JSON objects to models.
class MTLJSONAdapter {
  public:
    /// Ignores members that the model does not have. Fails with an error of
    /// `MTLJSONAdapterErrorDomain` that names the first missing or invalid member. Each model
    /// defines its specialisation.
    template <typename Model>
    static Result<Model> modelOfClass(const Value::Dictionary& dictionary);
};

}  // namespace teravolant::platform
