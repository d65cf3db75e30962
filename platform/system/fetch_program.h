#pragma once

#include "platform/core/http_message.h"

namespace teravolant::platform {

/// The `HttpTransfer` that starts the confined program `fetch` of the main bundle. Blocks; may be
/// called from several threads at once.
///
/// Checks what the program writes: a body begins where it was requested, has at most the permitted
/// and exactly the announced number of bytes, and arrives at `kLowestRate` or faster. Passes the
/// certificates and proxies of the environment to the program.
HttpTransfer transferInProgram;

}  // namespace teravolant::platform
