#pragma once

#include <optional>
#include <string>

// What the computer's administrator and the user have set for HTTP requests.
namespace teravolant::platform {

/// Returns the file of trusted certificates: `$SSL_CERT_FILE`, else the first existing file of
/// those in which the common distributions keep them. Returns nothing if there is none: libcurl
/// then uses its own default.
[[nodiscard]] std::optional<std::string> certificateFile();

/// Returns the proxy for https requests to the host, or an empty text: `https_proxy`, else
/// `all_proxy`, unless `no_proxy` contains "*", the host, or a domain of the host. The names may be
/// in lower or upper case. Never a proxy for a loopback host.
[[nodiscard]] std::string proxyFor(const std::string& host);

/// Returns host and port of a proxy, without credentials.
[[nodiscard]] std::string displayedProxy(const std::string& proxy);

}  // namespace teravolant::platform
