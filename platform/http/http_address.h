#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Whether the host is "localhost" or a loopback address. `host` is the text that libcurl
/// normalised, so that this check and the connection agree on it.
[[nodiscard]] bool isLoopbackHost(std::string_view host);

/// A URL that may be contacted: https to any host, http to a loopback host.
class HttpAddress {
  public:
    /// Fails with `badUrl` for a malformed URL, and with `unsupportedUrl` for a URL that must not
    /// be contacted.
    static Result<HttpAddress> parse(const std::string& url);

    /// Returns the target of a redirect (RFC 9110, section 10.2.2). Fails for a target that must
    /// not be contacted, for example http after https.
    [[nodiscard]] Result<HttpAddress> redirectedTo(const std::string& location) const;

    /// May contain credentials: not for messages.
    [[nodiscard]] const std::string& url() const { return _url; }
    /// For messages: the host, and the port if the URL contains one.
    [[nodiscard]] const std::string& displayedHost() const { return _displayedHost; }
    [[nodiscard]] const std::string& host() const { return _host; }
    [[nodiscard]] bool isSecure() const { return _isSecure; }
    /// Whether scheme, host and port are the same (RFC 6454).
    [[nodiscard]] bool hasSameOriginAs(const HttpAddress& other) const;

    /// libcurl's handle (a CURLU), which this object owns.
    [[nodiscard]] void* handle() const { return _handle.get(); }

  private:
    using Handle = std::unique_ptr<void, void (*)(void*)>;
    explicit HttpAddress(Handle handle);
    static Result<HttpAddress> checked(Handle handle);

    Handle _handle;
    std::string _url;
    std::string _host;
    std::string _port;
    std::string _displayedHost;
    bool _isSecure = false;
    bool _isLoopback = false;
};

}  // namespace teravolant::platform
