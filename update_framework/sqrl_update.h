#pragma once

#include <string>

#include "update_framework/mtl_json_adapter.h"

namespace teravolant::platform {

/// The unsigned part of a feed document. Every member is well-formed; none is trusted.
struct SQRLUpdate {
    std::string updateURL;  ///< `url`: satisfies `isSecureOrLoopbackURL`.
    std::string version;
};

/// Requires `url` and `version`; `name`, if it exists, must be a string.
template <>
Result<SQRLUpdate> MTLJSONAdapter::modelOfClass<SQRLUpdate>(const Value::Dictionary& dictionary);

}  // namespace teravolant::platform
