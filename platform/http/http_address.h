#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/core/result.h"

namespace teravolant::platform {

/// A URL that a request may be sent to: https to any host, http to a loopback one.
class HttpAddress {
  public:
    static Result<HttpAddress> parse(const std::string& url);

    /// Where a redirect leads (RFC 9110, section 10.2.2); an error where it may not lead.
    [[nodiscard]] Result<HttpAddress> redirectedTo(const std::string& location) const;

    /// With credentials that the URL may carry: not for messages.
    [[nodiscard]] const std::string& url() const { return _url; }
    /// For messages: the host, and the port when the URL names one.
    [[nodiscard]] const std::string& displayedHost() const { return _displayedHost; }
    [[nodiscard]] bool isSecure() const { return _isSecure; }
    [[nodiscard]] bool isLoopback() const { return _isLoopback; }
    /// Whether scheme, host and port are the same (RFC 6454).
    [[nodiscard]] bool hasSameOriginAs(const HttpAddress& other) const;

    /// The library's handle (a CURLU), which lives as long as this object.
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
