#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace teravolant::platform {

/// The file URL of an absolute path (RFC 8089), percent-encoded as RFC 3986 asks for in a path.
[[nodiscard]] std::string fileUrl(const std::filesystem::path& path);

/// A URL's text, percent-encoded as it is sent.
class URL {
  public:
    explicit URL(std::string absoluteString) : _absoluteString(std::move(absoluteString)) {}

    [[nodiscard]] const std::string& absoluteString() const { return _absoluteString; }

    /// What stands behind the first "?", up to a fragment; nothing without a "?".
    [[nodiscard]] std::optional<std::string> query() const;

  private:
    std::string _absoluteString;
};

/// The parts that a URL is put together from; each may be absent.
struct URLComponents {
    std::optional<std::string> scheme;
    std::optional<std::string> host;  ///< May carry a port, as in "localhost:8443".
    std::optional<std::string> path;
    std::optional<std::string> percentEncodedQuery;

    /// Host and path are percent-encoded here. Nothing when the parts make no URL: a scheme with
    /// characters that none has (RFC 3986), or a path behind a host that does not begin with "/".
    [[nodiscard]] std::optional<URL> url() const;
};

/// Percent-encodes what may not stand in a URL's query as it is (RFC 3986).
[[nodiscard]] std::string percentEncodedForQuery(std::string_view text);

/// Whether the text is an absolute URL to fetch from without fear of who listens in: https, or http
/// to a loopback host. One with a user name, with a character that RFC 3986 does not allow in its
/// place, or with a host that is not plainly a name or an address, is not.
[[nodiscard]] bool isSecureOrLoopbackURL(std::string_view text);

/// What to ask a server for: a GET with the platform's default settings.
struct URLRequest {
    std::optional<URL> url;
};

/// Shows the URL.
[[nodiscard]] std::string printedForm(const URLRequest& request);

}  // namespace teravolant::platform
