#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace teravolant::fixtures {

/// What a TLS server shows: a certificate and its private key, both as PEM text.
struct ServerIdentity {
    std::string certificate;
    std::string privateKey;
};

/// A certificate authority of a test's own, made anew each time.
class CertificateAuthority {
  public:
    CertificateAuthority();
    ~CertificateAuthority();

    /// The authority's own certificate, as a client trusts it.
    [[nodiscard]] std::string certificate() const;

    /// An identity for the alternative names, as in "DNS:localhost,IP:127.0.0.1", that is valid
    /// from a day before `start` to a day after it.
    [[nodiscard]] ServerIdentity issue(
        const std::string& names = "DNS:localhost,IP:127.0.0.1",
        std::chrono::system_clock::time_point start = std::chrono::system_clock::now()) const;

  private:
    struct Content;
    std::unique_ptr<Content> _content;
};

}  // namespace teravolant::fixtures
