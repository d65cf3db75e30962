#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace teravolant::platform {

/// Returns the file URL (RFC 8089) of an absolute path, percent-encoded per RFC 3986.
[[nodiscard]] std::string fileUrl(const std::filesystem::path& path);

/// The text of a URL, already percent-encoded.
class URL {
  public:
    explicit URL(std::string absoluteString) : _absoluteString(std::move(absoluteString)) {}

    [[nodiscard]] const std::string& absoluteString() const { return _absoluteString; }

    /// Returns the text between the first "?" and the fragment, or nothing without a "?".
    [[nodiscard]] std::optional<std::string> query() const;

  private:
    std::string _absoluteString;
};

/// The parts of a URL. Each part is optional.
struct URLComponents {
    std::optional<std::string> scheme;
    std::optional<std::string> host;  ///< May include a port: "localhost:8443".
    std::optional<std::string> path;
    std::optional<std::string> percentEncodedQuery;

    /// Percent-encodes host and path and returns the URL. Returns nothing if the scheme is invalid
    /// (RFC 3986), if the path after a host does not begin with "/", or if the path without a host
    /// begins with "//".
    [[nodiscard]] std::optional<URL> url() const;
};

/// Percent-encodes every character that RFC 3986 does not allow in a query.
[[nodiscard]] std::string percentEncodedForQuery(std::string_view text);

/// Whether the text is an absolute URL with the scheme https, or with http and a loopback host.
///
/// False for a URL with user information, with a character that RFC 3986 does not allow in its
/// place, or with a host that is neither a plain name nor an address.
[[nodiscard]] bool isSecureOrLoopbackURL(std::string_view text);

/// The same, but only with a loopback host.
[[nodiscard]] bool isLoopbackURL(std::string_view text);

/// A GET request with the platform's default settings.
struct URLRequest {
    std::optional<URL> url;
};

/// Returns the request as a log line shows it, with its URL.
[[nodiscard]] std::string printedForm(const URLRequest& request);

}  // namespace teravolant::platform
