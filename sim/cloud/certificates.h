// certificates.h - the certificates of the cloud host's sites, made when it starts.
#ifndef ZORV_SIM_CLOUD_CERTIFICATES_H
#define ZORV_SIM_CLOUD_CERTIFICATES_H

#include <memory>
#include <string>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace cloud {

template <auto Free>
struct Freer {
    template <class T>
    void operator()(T *thing) const
    {
        Free(thing);
    }
};

using Certificate = std::unique_ptr<X509, Freer<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;

// An authority, which signs for one key. Its certificates are valid from 2000 to 2049, so that a
// device's clock may be anywhere in between.
class Authority {
public:
    explicit Authority(const std::string &name);

    // A certificate of a site; an expired one ended with the year 2000.
    Certificate issue(const std::string &site, EVP_PKEY *key, bool expired) const;

    // Its own certificate, as a device keeps it.
    std::string pem() const;

private:
    Key key_;
    Certificate certificate_;
};

Key make_key();

} // namespace cloud

#endif
