#include "testing/certificates.h"

#include <stdexcept>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace teravolant::fixtures {
namespace {

constexpr long kDay = 24L * 60 * 60;

struct Free {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
    void operator()(BIO* bio) const { BIO_free_all(bio); }
};
using Key = std::unique_ptr<EVP_PKEY, Free>;
using Certificate = std::unique_ptr<X509, Free>;

void require(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

Key newKey() {
    Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "no key for a certificate");
    return key;
}

void addExtension(X509* certificate, X509* issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, Free> extension(
        X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, value.c_str());
}

/// A certificate without its extensions and its signature.
Certificate newCertificate(EVP_PKEY* key, const char* name, time_t start) {
    static long serialNumber = 0;
    Certificate certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), ++serialNumber);
    ASN1_TIME_set(X509_getm_notBefore(certificate.get()), start - kDay);
    ASN1_TIME_set(X509_getm_notAfter(certificate.get()), start + kDay);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
    return certificate;
}

template <typename Write>
std::string pemText(Write write) {
    const std::unique_ptr<BIO, Free> output(BIO_new(BIO_s_mem()));
    require(write(output.get()) == 1, "no PEM text");
    char* text = nullptr;
    const long length = BIO_get_mem_data(output.get(), &text);
    return {text, static_cast<std::size_t>(length)};
}

std::string pemOf(X509* certificate) {
    return pemText([&](BIO* output) { return PEM_write_bio_X509(output, certificate); });
}

}  // namespace

struct CertificateAuthority::Content {
    Key key = newKey();
    Certificate certificate;
};

CertificateAuthority::CertificateAuthority() : _content(std::make_unique<Content>()) {
    EVP_PKEY* key = _content->key.get();
    _content->certificate = newCertificate(key, "Authority of a test", std::time(nullptr));
    X509* certificate = _content->certificate.get();
    X509_set_issuer_name(certificate, X509_get_subject_name(certificate));
    addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
    require(X509_sign(certificate, key, EVP_sha256()) > 0, "the authority can't sign itself");
}

CertificateAuthority::~CertificateAuthority() = default;

std::string CertificateAuthority::certificate() const { return pemOf(_content->certificate.get()); }

ServerIdentity CertificateAuthority::issue(const std::string& names,
                                           std::chrono::system_clock::time_point start) const {
    const Key key = newKey();
    const Certificate certificate =
        newCertificate(key.get(), "Server of a test", std::chrono::system_clock::to_time_t(start));
    X509* issuer = _content->certificate.get();
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuer));
    addExtension(certificate.get(), issuer, NID_subject_alt_name, names);
    addExtension(certificate.get(), issuer, NID_authority_key_identifier, "keyid");
    require(X509_sign(certificate.get(), _content->key.get(), EVP_sha256()) > 0,
            "the authority can't sign");
    return {.certificate = pemOf(certificate.get()), .privateKey = pemText([&](BIO* output) {
                                                         return PEM_write_bio_PrivateKey(
                                                             output, key.get(), nullptr, nullptr, 0,
                                                             nullptr, nullptr);
                                                     })};
}

}  // namespace teravolant::fixtures
