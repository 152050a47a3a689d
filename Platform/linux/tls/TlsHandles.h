#pragma once

#include "Platform/CTlsCertificate.h"

#include <memory>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <string>
#include <vector>

namespace Platform {

/// Lets go of an OpenSSL object with the function that belongs to it.
template <auto Free>
struct SFreeWith
{
    template <class T>
    void operator()(T* p) const
    {
        Free(p);
    }
};

inline void FreeX509Stack(STACK_OF(X509) * pStack) { sk_X509_pop_free(pStack, X509_free); }

using CBioPtr = std::unique_ptr<BIO, SFreeWith<&BIO_free_all>>;
using CX509Ptr = std::unique_ptr<X509, SFreeWith<&X509_free>>;
using CX509StackPtr = std::unique_ptr<STACK_OF(X509), SFreeWith<&FreeX509Stack>>;
using CKeyPtr = std::unique_ptr<EVP_PKEY, SFreeWith<&EVP_PKEY_free>>;
using CSslPtr = std::unique_ptr<SSL, SFreeWith<&SSL_free>>;
using CSslContextPtr = std::unique_ptr<SSL_CTX, SFreeWith<&SSL_CTX_free>>;
using CSslSessionPtr = std::unique_ptr<SSL_SESSION, SFreeWith<&SSL_SESSION_free>>;

/// Another owner of the same certificate.
inline CX509Ptr Share(X509* pCertificate)
{
    if (pCertificate != nullptr)
        X509_up_ref(pCertificate);
    return CX509Ptr(pCertificate);
}

/// What a CTlsCertificate holds; the certificate is always there.
struct STlsCertificateData
{
    CX509Ptr pCertificate;
    std::vector<CX509Ptr> above;           ///< certificates that came along, in the order in which they came
    std::string strKeyFile;                ///< PEM; empty without a private key
    std::vector<unsigned char> ocspAnswer; ///< enclosed by the peer (RFC 6066 8)
};

/// SHA-256 of the certificate as bytes; a key for caches.
std::string Fingerprint(const X509& certificate);

} // namespace Platform
