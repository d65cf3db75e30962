#include "platform/core/url.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view kLettersAndDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

/// Characters of a path that need no encoding besides letters and digits: the unreserved ones, the
/// sub-delimiters, ":", "@" and "/".
constexpr std::string_view kPathMarks = "-._~!$&'()*+,;=:@/";
constexpr std::string_view kQueryMarks = "-._~!$&'()*+,;=:@/?";
/// Includes the brackets of an IPv6 address and the colon before a port.
constexpr std::string_view kHostMarks = "-._~!$&'()*+,;=:[]";
constexpr std::string_view kSchemeMarks = "+-.";

bool isIn(std::string_view set, char character) { return set.find(character) != set.npos; }

bool consistsOf(std::string_view text, std::string_view set, std::string_view marks = {}) {
    return std::all_of(text.begin(), text.end(), [set, marks](char character) {
        return isIn(set, character) || isIn(marks, character);
    });
}

std::string percentEncoded(std::string_view text, std::string_view allowedMarks) {
    std::string encoded;
    for (const char character : text) {
        if (isIn(kLettersAndDigits, character) || isIn(allowedMarks, character)) {
            encoded += character;
        } else {
            const auto byte = static_cast<std::uint8_t>(character);
            encoded += {'%', kHexDigits[byte >> 4U], kHexDigits[byte & 0xFU]};
        }
    }
    return encoded;
}

bool isScheme(std::string_view text) {
    return !text.empty() && !isIn(kDigits, text.front()) && !isIn(kSchemeMarks, text.front()) &&
           consistsOf(text, kLettersAndDigits, kSchemeMarks);
}

/// Whether the text is a valid end of a URL: path, query and fragment.
bool isValidTail(std::string_view text) {
    const std::size_t fragment = text.find('#');
    for (std::size_t index = 0; index < text.size(); ++index) {
        const char character = text[index];
        if (character == '%') {
            const std::string_view digits = text.substr(index + 1, 2);
            if (digits.size() != 2 || !consistsOf(digits, kHexDigits)) {
                return false;
            }
        } else if (!isIn(kLettersAndDigits, character) && !isIn(kQueryMarks, character) &&
                   index != fragment) {
            return false;
        }
    }
    return true;
}

/// Returns the number if the text consists of one to five digits, the most that a port has.
std::optional<unsigned> numberIn(std::string_view text) {
    if (text.empty() || text.size() > 5 || !consistsOf(text, kDigits)) {
        return std::nullopt;
    }
    unsigned number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

struct Authority {
    std::string_view host;
    std::string_view port;  ///< With its colon. Empty if there is no port.
};

Authority authorityIn(std::string_view text) {
    const std::size_t bracket = text.starts_with('[') ? text.find(']') : text.npos;
    const std::size_t end = bracket == text.npos ? text.find(':') : bracket + 1;
    return {text.substr(0, end), end < text.size() ? text.substr(end) : std::string_view()};
}

bool isPort(std::string_view text) {
    constexpr unsigned kHighest = 65535;
    if (text.empty()) {
        return true;
    }
    const auto number = numberIn(text.substr(1));
    return text.front() == ':' && number && *number > 0 && *number <= kHighest;
}

bool isHost(std::string_view text) {
    if (text.starts_with('[') && text.ends_with(']')) {
        text = text.substr(1, text.size() - 2);
        return !text.empty() && consistsOf(text, kHexDigits, ":.");
    }
    return !text.empty() && consistsOf(text, kLettersAndDigits, "-._");
}

/// Whether the host is "localhost", "[::1]" or an address of 127.0.0.0/8 in dotted decimal form.
/// False for other forms of these addresses: resolvers interpret them differently.
bool isLoopback(std::string_view host) {
    if (equalIgnoringCase(host, "localhost") || host == "[::1]") {
        return true;
    }
    constexpr std::string_view kNetwork = "127.";
    if (!host.starts_with(kNetwork)) {
        return false;
    }
    host.remove_prefix(kNetwork.size());
    for (int left = 3; left > 0; --left) {
        const std::size_t dot = left > 1 ? host.find('.') : host.size();
        const auto number = dot == host.npos ? std::nullopt : numberIn(host.substr(0, dot));
        if (!number || *number > 255 || (host.front() == '0' && dot > 1)) {
            return false;
        }
        host.remove_prefix(left > 1 ? dot + 1 : dot);
    }
    return true;
}

struct SchemeAndHost {
    bool isSecure;
    std::string_view host;
};

/// Returns nothing if the text is not a URL with the scheme https or http, or if it has a malformed
/// part.
std::optional<SchemeAndHost> partsOf(std::string_view text) {
    constexpr std::string_view kBehindScheme = "://";
    const std::size_t schemeEnd = std::min(text.find(kBehindScheme), text.size());
    const std::string_view scheme = text.substr(0, schemeEnd);
    const bool isSecure = equalIgnoringCase(scheme, "https");
    if (schemeEnd == text.size() || (!isSecure && !equalIgnoringCase(scheme, "http"))) {
        return std::nullopt;
    }
    text.remove_prefix(schemeEnd + kBehindScheme.size());
    const std::size_t tail = std::min(text.find_first_of("/?#"), text.size());
    const Authority authority = authorityIn(text.substr(0, tail));
    if (!isHost(authority.host) || !isPort(authority.port) || !isValidTail(text.substr(tail))) {
        return std::nullopt;
    }
    return SchemeAndHost{isSecure, authority.host};
}

}  // namespace

std::string fileUrl(const std::filesystem::path& path) {
    return "file://" + percentEncoded(path.string(), kPathMarks);
}

std::optional<std::string> URL::query() const {
    const std::string beforeFragment = _absoluteString.substr(0, _absoluteString.find('#'));
    const std::size_t mark = beforeFragment.find('?');
    if (mark == std::string::npos) {
        return std::nullopt;
    }
    return beforeFragment.substr(mark + 1);
}

std::optional<URL> URLComponents::url() const {
    const std::string pathText = path.value_or("");
    const bool detached = host && !pathText.empty() && !pathText.starts_with('/');
    const bool takenForHost = !host && pathText.starts_with("//");
    if ((scheme && !isScheme(*scheme)) || detached || takenForHost) {
        return std::nullopt;
    }
    std::string text;
    if (scheme) {
        text += *scheme + ":";
    }
    if (host) {
        text += "//" + percentEncoded(*host, kHostMarks);
    }
    text += percentEncoded(pathText, kPathMarks);
    if (percentEncodedQuery) {
        text += "?" + *percentEncodedQuery;
    }
    return URL(std::move(text));
}

std::string percentEncodedForQuery(std::string_view text) {
    return percentEncoded(text, kQueryMarks);
}

bool isSecureOrLoopbackURL(std::string_view text) {
    const auto parts = partsOf(text);
    return parts && (parts->isSecure || isLoopback(parts->host));
}

bool isLoopbackURL(std::string_view text) {
    const auto parts = partsOf(text);
    return parts && isLoopback(parts->host);
}

std::string printedForm(const URLRequest& request) {
    return "<NSURLRequest: { URL: " +
           (request.url ? request.url->absoluteString() : std::string(kMissingValueMark)) + " }>";
}

}  // namespace teravolant::platform
