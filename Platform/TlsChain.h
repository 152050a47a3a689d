#pragma once

#include "Platform/CTlsCredentials.h"
#include "Platform/CWaitLimit.h"

/// The checks of a peer's certificate. Thread-safe.
///
/// The roots are the system's trust store; SSL_CERT_FILE and SSL_CERT_DIR take its place. A change of the files is
/// noticed at the next check.
namespace Platform {

/// Bits of dwErrorStatus.
inline constexpr uint32_t CERT_TRUST_IS_NOT_TIME_VALID = 0x00000001;
inline constexpr uint32_t CERT_TRUST_IS_REVOKED = 0x00000004;
inline constexpr uint32_t CERT_TRUST_IS_NOT_SIGNATURE_VALID = 0x00000008;
inline constexpr uint32_t CERT_TRUST_IS_NOT_VALID_FOR_USAGE = 0x00000010;
inline constexpr uint32_t CERT_TRUST_IS_UNTRUSTED_ROOT = 0x00000020;
inline constexpr uint32_t CERT_TRUST_REVOCATION_STATUS_UNKNOWN = 0x00000040;
inline constexpr uint32_t CERT_TRUST_INVALID_EXTENSION = 0x00000100;
inline constexpr uint32_t CERT_TRUST_INVALID_BASIC_CONSTRAINTS = 0x00000400;
inline constexpr uint32_t CERT_TRUST_INVALID_NAME_CONSTRAINTS = 0x00000800;
inline constexpr uint32_t CERT_TRUST_IS_PARTIAL_CHAIN = 0x00010000;
/// Bits of dwInfoStatus.
inline constexpr uint32_t CERT_TRUST_HAS_NAME_MATCH_ISSUER = 0x00000004;
inline constexpr uint32_t CERT_TRUST_IS_SELF_SIGNED = 0x00000008;

struct STlsTrust
{
    uint32_t dwErrorStatus = 0;
    uint32_t dwInfoStatus = 0;
};

struct STlsChainElement
{
    CTlsCertificate certificate;
    STlsTrust trust;
};

struct STlsSimpleChain
{
    STlsTrust trust;
    std::vector<STlsChainElement> elements; ///< from the end certificate to the root
};

struct STlsChain
{
    STlsTrust trust;
    std::vector<STlsSimpleChain> chains;
};

struct STlsPolicyStatus
{
    uint32_t dwError = 0;
    int iChain = -1; ///< -1: the chain as a whole
    int iElement = -1;
};

struct STlsRevocationStatus
{
    uint32_t dwIndex = 0; ///< which certificate
    uint32_t dwError = 0;
    uint32_t dwReason = 0; ///< RFC 5280 5.3.1
};

bool HasTrustedRoots(); ///< there is at least one; else no chain is good

/// Builds the chain now, with the certificates that came along with this one. Faults of the chain stand in it; the
/// result is a failure only when no chain could be built at all.
uint32_t BuildTlsChain(const CTlsCertificate& certificate, bool bCheckRevocation, const CWaitLimit& limit,
                       STlsChain& chain);

/// Judges a chain for TLS as the given end, which looks at the other end's certificate. The name, which may be empty,
/// must be one of the certificate's. Revocation is not judged.
uint32_t VerifyTlsPolicy(const STlsChain& chain, ETlsEnd judge, const std::string& strServerName,
                         STlsPolicyStatus& status);

/// Asks about every certificate of a chain but its root: an enclosed answer, OCSP, then revocation lists, over HTTP,
/// all within a few seconds and the limit; answers are kept while they are valid. A certificate that names no source is
/// good. The first that is revoked is the result, else the first that could not be asked about. False: status.
bool CheckTlsRevocation(const std::vector<CTlsCertificate>& certificates, const CWaitLimit& limit,
                        STlsRevocationStatus& status);

} // namespace Platform
