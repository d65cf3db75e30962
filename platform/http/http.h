#pragma once

#include "platform/core/http_message.h"

namespace teravolant::platform {

/// The `HttpTransfer` that runs in this process, with libcurl. Blocks; one call at a time.
///
/// Servers are authenticated with the certificates in the file `$SSL_CERT_FILE`, else with the
/// system's. Uses the proxies of the environment (`https_proxy`, `all_proxy` and `no_proxy`, in
/// either case), but never for a loopback host. A request over plain http connects to loopback
/// addresses only.
HttpTransfer transferOverHttp;

}  // namespace teravolant::platform
