#include "cloud/certificates.h"

#include <atomic>
#include <stdexcept>

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace cloud {
namespace {

void check(bool good, const char *what)
{
    if (!good)
        throw std::runtime_error(std::string("certificate: ") + what);
}

void add_extension(X509 *certificate, int kind, const std::string &value)
{
    const std::unique_ptr<X509_EXTENSION, Freer<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str()));
    check(extension && X509_add_ext(certificate, extension.get(), -1), value.c_str());
}

// Everything but issuer and signature.
Certificate draft(const std::string &name, EVP_PKEY *key, const char *end)
{
    static std::atomic<long> serial = 0;
    Certificate certificate(X509_new());
    check(certificate != nullptr, "memory");
    X509 *const x509 = certificate.get();
    X509_set_version(x509, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(x509), ++serial);
    ASN1_TIME_set_string_X509(X509_getm_notBefore(x509), "20000101000000Z");
    ASN1_TIME_set_string_X509(X509_getm_notAfter(x509), end);
    check(X509_NAME_add_entry_by_txt(X509_get_subject_name(x509), "CN", MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char *>(name.c_str()), -1, -1,
                                     0),
          name.c_str());
    check(X509_set_pubkey(x509, key), "key");
    return certificate;
}

void sign(X509 *certificate, const X509 *issuer, EVP_PKEY *key)
{
    check(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) &&
              X509_sign(certificate, key, EVP_sha256()) > 0,
          "signature");
}

constexpr char kFarEnd[] = "20491231235959Z";

} // namespace

Key make_key()
{
    Key key(EVP_EC_gen("P-256"));
    check(key != nullptr, "key");
    return key;
}

Authority::Authority(const std::string &name)
    : key_(make_key()), certificate_(draft(name, key_.get(), kFarEnd))
{
    add_extension(certificate_.get(), NID_basic_constraints, "critical,CA:TRUE");
    add_extension(certificate_.get(), NID_key_usage, "critical,keyCertSign");
    sign(certificate_.get(), certificate_.get(), key_.get());
}

Certificate Authority::issue(const std::string &site, EVP_PKEY *key, bool expired) const
{
    Certificate certificate = draft(site, key, expired ? "20001231235959Z" : kFarEnd);
    add_extension(certificate.get(), NID_subject_alt_name, "DNS:" + site);
    sign(certificate.get(), certificate_.get(), key_.get());
    return certificate;
}

std::string Authority::pem() const
{
    const std::unique_ptr<BIO, Freer<BIO_free>> memory(BIO_new(BIO_s_mem()));
    check(memory && PEM_write_bio_X509(memory.get(), certificate_.get()), "text");
    char *text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<size_t>(length)};
}

} // namespace cloud
