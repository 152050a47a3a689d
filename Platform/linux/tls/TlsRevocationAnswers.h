#pragma once

#include "Platform/linux/tls/TlsHandles.h"

#include <cstdint>

namespace Platform {

enum class ERevocation { Good, Revoked, Unknown };

/// What a source said about one certificate.
struct SRevocationAnswer
{
    ERevocation verdict = ERevocation::Unknown;
    uint32_t dwReason = 0; ///< RFC 5280 5.3.1
    int64_t iValidUntil = 0;
};

/// The request to ask a responder with (RFC 6960 4.1); empty on failure.
std::vector<unsigned char> MakeOcspRequest(X509& certificate, X509& issuer);
/// Unknown unless the answer is genuine, of now, and about this certificate.
SRevocationAnswer ReadOcspAnswer(const std::vector<unsigned char>& answer, X509& certificate, X509& issuer);
/// The same for a revocation list in DER (RFC 5280 5).
SRevocationAnswer ReadRevocationList(const std::vector<unsigned char>& list, X509& certificate, X509& issuer);

/// Where the certificate says that one can ask, of whatever scheme.
std::vector<std::string> OcspAddresses(X509& certificate);
std::vector<std::string> ListAddresses(X509& certificate);

} // namespace Platform
