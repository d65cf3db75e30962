#include "platform/http/http_environment.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "platform/core/text.h"
#include "platform/http/http_address.h"

namespace teravolant::platform {
namespace {

constexpr const char* kCertificateFiles[] = {
    "/etc/ssl/certs/ca-certificates.crt",                 // Debian, Ubuntu, Arch, Alpine, Gentoo
    "/etc/pki/tls/certs/ca-bundle.crt",                   // Fedora, Red Hat
    "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",  // newer Fedora
    "/etc/ssl/ca-bundle.pem",                             // openSUSE
    "/etc/ssl/cert.pem",                                  // Alpine without the package
};

/// Returns an empty text if neither form of the variable is set.
std::string environmentIn(const std::string& lowerCaseName) {
    std::string upper = lowerCaseName;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](char letter) {
        return letter == '_' ? letter : static_cast<char>(letter - 'a' + 'A');
    });
    for (const std::string& name : {lowerCaseName, upper}) {
        if (const char* value = std::getenv(name.c_str()); value != nullptr && *value != '\0') {
            return value;
        }
    }
    return {};
}

bool isExempt(const std::string& host) {
    std::string list = environmentIn("no_proxy");
    std::replace(list.begin(), list.end(), ',', ' ');
    std::istringstream entries(list);
    for (std::string entry; entries >> entry;) {
        const std::string domain = entry.starts_with('.') ? entry.substr(1) : entry;
        if (domain == "*" || equalIgnoringCase(host, domain) ||
            lowerCase(host).ends_with("." + lowerCase(domain))) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::optional<std::string> certificateFile() {
    if (std::string file = environmentIn("ssl_cert_file"); !file.empty()) {
        return file;
    }
    for (const char* file : kCertificateFiles) {
        std::error_code unknown;
        if (std::filesystem::exists(file, unknown)) {
            return file;
        }
    }
    return std::nullopt;
}

std::string proxyFor(const std::string& host) {
    if (isLoopbackHost(host) || isExempt(host)) {
        return {};
    }
    const std::string proxy = environmentIn("https_proxy");
    return proxy.empty() ? environmentIn("all_proxy") : proxy;
}

std::string displayedProxy(const std::string& proxy) {
    const std::size_t scheme = proxy.find("://");
    std::string rest = scheme == proxy.npos ? proxy : proxy.substr(scheme + 3);
    // A password may contain slashes.
    rest = rest.substr(rest.rfind('@') + 1);
    return rest.substr(0, rest.find('/'));
}

}  // namespace teravolant::platform
