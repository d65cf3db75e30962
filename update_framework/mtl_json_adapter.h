#pragma once

#include <cstdint>
#include <string_view>

#include "platform/core/result.h"
#include "platform/values/json.h"

namespace teravolant::platform {

inline constexpr std::string_view MTLJSONAdapterErrorDomain = "MTLJSONAdapterErrorDomain";

enum MTLJSONAdapterErrorCode : std::int64_t {
    MTLJSONAdapterErrorMissingMember = 1,
    MTLJSONAdapterErrorInvalidMember = 2,
};

/// Makes models from JSON objects.
class MTLJSONAdapter {
  public:
    /// Members that the model does not know are passed over. Fails with an error of
    /// `MTLJSONAdapterErrorDomain` that names the first member that is missing or not as it must
    /// be. Defined beside each model.
    template <typename Model>
    static Result<Model> modelOfClass(const Value::Dictionary& dictionary);
};

}  // namespace teravolant::platform
