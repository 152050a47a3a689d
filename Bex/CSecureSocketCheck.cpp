#include "Bex/CSecureSocket.h"

#include "Bex/CSecurityException.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Platform/TlsChain.h"

using namespace Platform;

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CSecureSocket";

void LogChain(const STlsChain& chain)
{
    for (size_t i = 0; i < chain.chains.size(); ++i) {
        const std::vector<STlsChainElement>& elements = chain.chains[i].elements;
        for (size_t j = 0; j < elements.size(); ++j) {
            LogInfo(MainLog(), "[%d][%d]", static_cast<int>(i), static_cast<int>(j));
            LogInfo(MainLog(), "Subject: %.255s", elements[j].certificate.SubjectText().c_str());
            LogInfo(MainLog(), "Issuer:  %.255s", elements[j].certificate.IssuerText().c_str());
        }
    }
}

void LogPolicyError(const STlsChain& chain, const STlsPolicyStatus& status)
{
    const int iChain = status.iChain;
    const int iElement = status.iElement;
    if (iChain < 0 && iElement < 0) {
        LogError(MainLog(), "error 0x%08X in chain: dwErrorStatus=0x%08X dwInfoStatus=0x%08X", status.dwError,
                 chain.trust.dwErrorStatus, chain.trust.dwInfoStatus);
    } else if (iChain < 0) {
        LogError(MainLog(), "error 0x%08X in unknown location", status.dwError);
    } else if (iElement < 0) {
        const STlsTrust& trust = chain.chains.at(static_cast<size_t>(iChain)).trust;
        LogError(MainLog(), "error 0x%08X in pChainContext->rgpChain[%d]: dwErrorStatus=0x%08X dwInfoStatus=0x%08X",
                 status.dwError, iChain, trust.dwErrorStatus, trust.dwInfoStatus);
    } else {
        const STlsTrust& trust =
            chain.chains.at(static_cast<size_t>(iChain)).elements.at(static_cast<size_t>(iElement)).trust;
        LogError(MainLog(),
                 "error 0x%08X in pChainContext->rgpChain[%d]->rgpElement[%d]: dwErrorStatus=0x%08X "
                 "dwInfoStatus=0x%08X",
                 status.dwError, iChain, iElement, trust.dwErrorStatus, trust.dwInfoStatus);
    }
}

} // namespace

bool CSecureSocket::VerifyCertificate(uint32_t dwStatus)
{
    LogError(MainLog(), "CSecureSocket::VerifyCertificate returned 0x%08X", dwStatus);
    return false;
}

void CSecureSocket::CheckPeer(const CSimpleString& strTargetName)
{
    CTlsCertificate certificate;
    uint32_t dwStatus = m_context.QueryPeerCertificate(certificate);
    if (IsFailure(dwStatus))
        ThrowSecurityException(SOURCE_FILE, __LINE__, dwStatus);
    dwStatus = VerifyChain(certificate, strTargetName);
    if (IsFailure(dwStatus) && !VerifyCertificate(dwStatus))
        ThrowSecurityException(SOURCE_FILE, __LINE__, dwStatus);
}

uint32_t CSecureSocket::VerifyChain(const CTlsCertificate& certificate, const CSimpleString& strTargetName) const
{
    if (certificate.IsEmpty())
        return SEC_E_WRONG_PRINCIPAL;
    if (!certificate.IsValidNow())
        return SEC_E_CERT_EXPIRED;
    if (!m_bServer && (strTargetName.IsEmpty() || !IsUtf8(strTargetName)))
        return SEC_E_WRONG_PRINCIPAL;
    STlsChain chain;
    uint32_t dwStatus = BuildTlsChain(certificate, m_bServer, m_limit, chain);
    if (IsFailure(dwStatus))
        return dwStatus;
    STlsPolicyStatus policy;
    const std::string strServerName(m_bServer ? std::string_view() : strTargetName.View());
    dwStatus = VerifyTlsPolicy(chain, End(), strServerName, policy);
    if (IsFailure(dwStatus))
        return dwStatus;
    if (policy.dwError != 0) {
        LogPolicyError(chain, policy);
        LogChain(chain);
        return policy.dwError;
    }
    return CheckRevocation(chain);
}

uint32_t CSecureSocket::CheckRevocation(const STlsChain& chain) const
{
    std::vector<CTlsCertificate> certificates;
    for (const STlsSimpleChain& simple : chain.chains) {
        for (const STlsChainElement& element : simple.elements)
            certificates.push_back(element.certificate);
    }
    STlsRevocationStatus status;
    if (CheckTlsRevocation(certificates, m_limit, status))
        return SEC_E_OK;
    if (status.dwError != E_INVALIDARG) {
        LogError(MainLog(), "CERT_REVOCATION_STATUS.dwError: 0x%08X .dwIndex: %d .dwReason: %d", status.dwError,
                 static_cast<int>(status.dwIndex), static_cast<int>(status.dwReason));
        if (status.dwError == CRYPT_E_REVOCATION_OFFLINE)
            return SEC_E_OK;
    }
    LogChain(chain);
    return status.dwError;
}

} // namespace Bex
