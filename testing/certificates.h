#pragma once

#include <chrono>
#include <memory>
#include <string>

// The library's own names of a certificate and a key.
struct x509_st;
struct evp_pkey_st;

namespace teravolant::fixtures {

/// What a TLS server shows: a certificate and its private key.
struct ServerIdentity {
    std::shared_ptr<x509_st> certificate;
    std::shared_ptr<evp_pkey_st> privateKey;
};

/// A certificate authority of a test's own, made anew each time.
class CertificateAuthority {
  public:
    CertificateAuthority();

    /// The authority's own certificate as PEM text, as a client trusts it.
    [[nodiscard]] std::string certificate() const;

    /// An identity for the alternative names, as in "DNS:localhost,IP:127.0.0.1", that is valid
    /// from a day before `start` to a day after it.
    [[nodiscard]] ServerIdentity issue(
        const std::string& names = "DNS:localhost,IP:127.0.0.1",
        std::chrono::system_clock::time_point start = std::chrono::system_clock::now()) const;

  private:
    ServerIdentity _own;
};

}  // namespace teravolant::fixtures
