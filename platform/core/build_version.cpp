#include "platform/core/build_version.h"

namespace teravolant::platform {

const char* buildVersion() { return TERAVOLANT_VERSION; }

}  // namespace teravolant::platform
