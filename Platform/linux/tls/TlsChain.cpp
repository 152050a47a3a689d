#include "Platform/TlsChain.h"

#include "Platform/linux/tls/TlsErrors.h"
#include "Platform/linux/tls/TlsTargetName.h"
#include "Platform/linux/tls/TlsTrustStore.h"

#include <algorithm>
#include <iterator>
#include <openssl/x509v3.h>

namespace Platform {

namespace {

using CStoreContextPtr = std::unique_ptr<X509_STORE_CTX, SFreeWith<&X509_STORE_CTX_free>>;

struct SChainFault
{
    int iError;
    uint32_t dwTrust;
};

constexpr SChainFault CHAIN_FAULTS[] = {
    {X509_V_ERR_CERT_NOT_YET_VALID, CERT_TRUST_IS_NOT_TIME_VALID},
    {X509_V_ERR_CERT_HAS_EXPIRED, CERT_TRUST_IS_NOT_TIME_VALID},
    {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, CERT_TRUST_IS_UNTRUSTED_ROOT},
    {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, CERT_TRUST_IS_UNTRUSTED_ROOT},
    {X509_V_ERR_CERT_UNTRUSTED, CERT_TRUST_IS_UNTRUSTED_ROOT},
    {X509_V_ERR_CERT_REJECTED, CERT_TRUST_IS_UNTRUSTED_ROOT},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, CERT_TRUST_IS_PARTIAL_CHAIN},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, CERT_TRUST_IS_PARTIAL_CHAIN},
    {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, CERT_TRUST_IS_PARTIAL_CHAIN},
    {X509_V_ERR_CERT_CHAIN_TOO_LONG, CERT_TRUST_IS_PARTIAL_CHAIN},
    {X509_V_ERR_INVALID_CA, CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    {X509_V_ERR_INVALID_NON_CA, CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    {X509_V_ERR_PATH_LENGTH_EXCEEDED, CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    {X509_V_ERR_KEYUSAGE_NO_CERTSIGN, CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    {X509_V_ERR_PERMITTED_VIOLATION, CERT_TRUST_INVALID_NAME_CONSTRAINTS},
    {X509_V_ERR_EXCLUDED_VIOLATION, CERT_TRUST_INVALID_NAME_CONSTRAINTS},
    {X509_V_ERR_SUBTREE_MINMAX, CERT_TRUST_INVALID_NAME_CONSTRAINTS},
    {X509_V_ERR_UNSUPPORTED_NAME_SYNTAX, CERT_TRUST_INVALID_NAME_CONSTRAINTS},
    {X509_V_ERR_INVALID_PURPOSE, CERT_TRUST_IS_NOT_VALID_FOR_USAGE},
    {X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION, CERT_TRUST_INVALID_EXTENSION},
    {X509_V_ERR_INVALID_EXTENSION, CERT_TRUST_INVALID_EXTENSION},
};

/// A fault that has no row leaves the signature in doubt.
uint32_t TrustOfFault(int iError)
{
    const auto* const pRow = std::find_if(std::begin(CHAIN_FAULTS), std::end(CHAIN_FAULTS),
                                          [iError](const SChainFault& row) { return row.iError == iError; });
    return pRow == std::end(CHAIN_FAULTS) ? CERT_TRUST_IS_NOT_SIGNATURE_VALID : pRow->dwTrust;
}

/// What OpenSSL asks of keys and signatures at least: 80 bits, hence no MD5, no SHA-1 and no RSA below 1024.
constexpr int SECURITY_LEVEL = 1;

/// Bits by the position in the chain.
using CFaults = std::vector<uint32_t>;

/// Notes the fault and goes on, so that all of them are found.
int NoteFault(int iGood, X509_STORE_CTX* pContext)
{
    if (iGood == 1)
        return 1;
    auto& faults = *static_cast<CFaults*>(X509_STORE_CTX_get_app_data(pContext));
    const auto nDepth = static_cast<size_t>(std::max(0, X509_STORE_CTX_get_error_depth(pContext)));
    if (faults.size() <= nDepth)
        faults.resize(nDepth + 1);
    faults[nDepth] |= TrustOfFault(X509_STORE_CTX_get_error(pContext));
    return 1;
}

/// The end certificate stays the object that it was, with all that came along with it.
STlsChain ChainOf(const CTlsCertificate& certificate, const STACK_OF(X509) * pStack, const CFaults& faults)
{
    STlsSimpleChain simple;
    for (int i = 0; i < sk_X509_num(pStack); ++i) {
        STlsChainElement element;
        X509* const pElement = sk_X509_value(pStack, i);
        if (i == 0) {
            element.certificate = certificate;
        } else {
            auto pData = std::make_shared<STlsCertificateData>();
            pData->pCertificate = Share(pElement);
            element.certificate = CTlsCertificate(std::move(pData));
        }
        element.trust.dwErrorStatus = static_cast<size_t>(i) < faults.size() ? faults[static_cast<size_t>(i)] : 0;
        element.trust.dwInfoStatus = X509_self_signed(pElement, 0) == 1 ? CERT_TRUST_IS_SELF_SIGNED : 0;
        if (i + 1 < sk_X509_num(pStack))
            element.trust.dwInfoStatus |= CERT_TRUST_HAS_NAME_MATCH_ISSUER;
        // A missing issuer is the chain's fault and no certificate's.
        simple.trust.dwErrorStatus |= element.trust.dwErrorStatus;
        element.trust.dwErrorStatus &= ~CERT_TRUST_IS_PARTIAL_CHAIN;
        simple.elements.push_back(std::move(element));
    }
    STlsChain chain;
    chain.trust = simple.trust;
    chain.chains.push_back(std::move(simple));
    return chain;
}

void NoteRevocation(STlsChain& chain, const CWaitLimit& limit)
{
    std::vector<STlsChainElement>& elements = chain.chains.front().elements;
    std::vector<CTlsCertificate> certificates;
    certificates.reserve(elements.size());
    for (const STlsChainElement& element : elements)
        certificates.push_back(element.certificate);
    STlsRevocationStatus status;
    if (CheckTlsRevocation(certificates, limit, status) || status.dwIndex >= elements.size())
        return;
    const uint32_t dwTrust =
        status.dwError == CRYPT_E_REVOKED ? CERT_TRUST_IS_REVOKED : CERT_TRUST_REVOCATION_STATUS_UNKNOWN;
    elements[status.dwIndex].trust.dwErrorStatus |= dwTrust;
    chain.chains.front().trust.dwErrorStatus |= dwTrust;
    chain.trust.dwErrorStatus |= dwTrust;
}

struct SPolicyFault
{
    uint32_t dwTrust;
    uint32_t dwError;
};

/// The worst comes first.
constexpr SPolicyFault POLICY_FAULTS[] = {
    {CERT_TRUST_IS_NOT_SIGNATURE_VALID, TRUST_E_CERT_SIGNATURE},
    {CERT_TRUST_IS_UNTRUSTED_ROOT, CERT_E_UNTRUSTEDROOT},
    {CERT_TRUST_IS_PARTIAL_CHAIN, CERT_E_CHAINING},
    {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, TRUST_E_BASIC_CONSTRAINTS},
    {CERT_TRUST_INVALID_NAME_CONSTRAINTS, CERT_E_INVALID_NAME},
    {CERT_TRUST_INVALID_EXTENSION, TRUST_E_FAIL},
    {CERT_TRUST_IS_NOT_TIME_VALID, CERT_E_EXPIRED},
    {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, CERT_E_WRONG_USAGE},
};

/// Where in the chains a fault is, when one has it.
STlsPolicyStatus Locate(const STlsChain& chain, const SPolicyFault& fault)
{
    STlsPolicyStatus status{fault.dwError, -1, -1};
    for (size_t i = 0; i < chain.chains.size(); ++i) {
        const STlsSimpleChain& simple = chain.chains[i];
        if ((simple.trust.dwErrorStatus & fault.dwTrust) == 0)
            continue;
        status.iChain = static_cast<int>(i);
        const auto element =
            std::find_if(simple.elements.begin(), simple.elements.end(), [&fault](const STlsChainElement& candidate) {
                return (candidate.trust.dwErrorStatus & fault.dwTrust) != 0;
            });
        if (element != simple.elements.end())
            status.iElement = static_cast<int>(element - simple.elements.begin());
        break;
    }
    return status;
}

/// RFC 6125 6.4; a wildcard stands for one whole label.
bool NamesHost(X509& certificate, const std::string& strServerName)
{
    const STlsTargetName target = ParseTargetName(strServerName);
    if (target.bAddress)
        return X509_check_ip_asc(&certificate, target.strName.c_str(), 0) == 1;
    return X509_check_host(&certificate, target.strName.data(), target.strName.size(),
                           X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS, nullptr) == 1;
}

/// The first certificate of the chain that may not be used for this, its root aside; -1 when there is none.
int FindWrongUsage(const STlsSimpleChain& chain, int iPurpose)
{
    for (size_t i = 0; i < chain.elements.size(); ++i) {
        const STlsChainElement& element = chain.elements[i];
        const bool bRoot = i > 0 && (element.trust.dwInfoStatus & CERT_TRUST_IS_SELF_SIGNED) != 0;
        X509* const pCertificate = element.certificate.Data()->pCertificate.get();
        if (!bRoot && X509_check_purpose(pCertificate, iPurpose, i > 0 ? 1 : 0) == 0)
            return static_cast<int>(i);
    }
    return -1;
}

} // namespace

uint32_t BuildTlsChain(const CTlsCertificate& certificate, bool bCheckRevocation, const CWaitLimit& limit,
                       STlsChain& chain)
{
    if (certificate.IsEmpty())
        return E_INVALIDARG;
    ERR_clear_error();
    const STlsCertificateData& data = *certificate.Data();
    const std::shared_ptr<X509_STORE> pTrusted = TrustStore();
    const CX509StackPtr pAbove(sk_X509_new_null());
    const CStoreContextPtr pContext(X509_STORE_CTX_new());
    bool bReady = pTrusted != nullptr && pAbove != nullptr && pContext != nullptr;
    for (const CX509Ptr& pCertificate : data.above)
        bReady = bReady && X509_add_cert(pAbove.get(), pCertificate.get(), X509_ADD_FLAG_UP_REF) == 1;
    if (!bReady || X509_STORE_CTX_init(pContext.get(), pTrusted.get(), data.pCertificate.get(), pAbove.get()) != 1) {
        ERR_clear_error();
        return SEC_E_INSUFFICIENT_MEMORY;
    }
    CFaults faults;
    X509_STORE_CTX_set_app_data(pContext.get(), &faults);
    X509_STORE_CTX_set_verify_cb(pContext.get(), &NoteFault);
    X509_VERIFY_PARAM_set_auth_level(X509_STORE_CTX_get0_param(pContext.get()), SECURITY_LEVEL);
    const int iVerified = X509_verify_cert(pContext.get());
    const STACK_OF(X509)* const pBuilt = X509_STORE_CTX_get0_chain(pContext.get());
    ERR_clear_error();
    if (iVerified != 1 || sk_X509_num(pBuilt) < 1)
        return TRUST_E_FAIL;
    chain = ChainOf(certificate, pBuilt, faults);
    if (bCheckRevocation)
        NoteRevocation(chain, limit);
    return SEC_E_OK;
}

uint32_t VerifyTlsPolicy(const STlsChain& chain, ETlsEnd judge, const std::string& strServerName,
                         STlsPolicyStatus& status)
{
    if (chain.chains.empty() || chain.chains.front().elements.empty())
        return E_INVALIDARG;
    status = {};
    for (const SPolicyFault& fault : POLICY_FAULTS) {
        if ((chain.trust.dwErrorStatus & fault.dwTrust) != 0) {
            status = Locate(chain, fault);
            return SEC_E_OK;
        }
    }
    const STlsSimpleChain& simple = chain.chains.front();
    const int iPurpose = judge == ETlsEnd::Client ? X509_PURPOSE_SSL_SERVER : X509_PURPOSE_SSL_CLIENT;
    const int iWrong = FindWrongUsage(simple, iPurpose);
    if (iWrong >= 0)
        status = {CERT_E_WRONG_USAGE, 0, iWrong};
    else if (!strServerName.empty() &&
             !NamesHost(*simple.elements.front().certificate.Data()->pCertificate, strServerName))
        status = {CERT_E_CN_NO_MATCH, 0, 0};
    ERR_clear_error();
    return SEC_E_OK;
}

} // namespace Platform
