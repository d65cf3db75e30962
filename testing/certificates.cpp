#include "testing/certificates.h"

#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace teravolant::fixtures {
namespace {

/// An identity with a name of its own and one extension, signed by the issuer, or by itself.
ServerIdentity newIdentity(int extensionKind, const std::string& extension,
                           std::chrono::system_clock::time_point start,
                           const ServerIdentity* issuer = nullptr) {
    constexpr long kDay = 24L * 60 * 60;
    static long serialNumber = 0;
    ServerIdentity identity{{X509_new(), X509_free}, {EVP_EC_gen("P-256"), EVP_PKEY_free}};
    X509* certificate = identity.certificate.get();
    const ServerIdentity& signer = issuer != nullptr ? *issuer : identity;
    const std::string name = "Name " + std::to_string(++serialNumber);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509_set_issuer_name(certificate, X509_get_subject_name(signer.certificate.get()));
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), serialNumber);
    const std::time_t middle = std::chrono::system_clock::to_time_t(start);
    ASN1_TIME_set(X509_getm_notBefore(certificate), middle - kDay);
    ASN1_TIME_set(X509_getm_notAfter(certificate), middle + kDay);
    X509_set_pubkey(certificate, identity.privateKey.get());
    X509_EXTENSION* added = X509V3_EXT_conf_nid(nullptr, nullptr, extensionKind, extension.c_str());
    X509_add_ext(certificate, added, -1);
    X509_EXTENSION_free(added);
    if (X509_sign(certificate, signer.privateKey.get(), EVP_sha256()) == 0) {
        throw std::runtime_error("no certificate could be made");
    }
    return identity;
}

}  // namespace

CertificateAuthority::CertificateAuthority()
    : _own(newIdentity(NID_basic_constraints, "critical,CA:TRUE",
                       std::chrono::system_clock::now())) {}

std::string CertificateAuthority::certificate() const {
    const std::unique_ptr<BIO, decltype(&BIO_free)> output(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_X509(output.get(), _own.certificate.get());
    char* text = nullptr;
    const long length = BIO_get_mem_data(output.get(), &text);
    return {text, static_cast<std::size_t>(length)};
}

ServerIdentity CertificateAuthority::issue(const std::string& names,
                                           std::chrono::system_clock::time_point start) const {
    return newIdentity(NID_subject_alt_name, names, start, &_own);
}

}  // namespace teravolant::fixtures
