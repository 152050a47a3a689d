#include "Platform/linux/tls/TlsRevocationAnswers.h"

#include "Platform/Clock.h"

#include <ctime>
#include <openssl/ocsp.h>
#include <openssl/x509v3.h>

namespace Platform {

namespace {

using COcspRequestPtr = std::unique_ptr<OCSP_REQUEST, SFreeWith<&OCSP_REQUEST_free>>;
using COcspResponsePtr = std::unique_ptr<OCSP_RESPONSE, SFreeWith<&OCSP_RESPONSE_free>>;
using COcspBasicPtr = std::unique_ptr<OCSP_BASICRESP, SFreeWith<&OCSP_BASICRESP_free>>;
using COcspIdPtr = std::unique_ptr<OCSP_CERTID, SFreeWith<&OCSP_CERTID_free>>;
using CStorePtr = std::unique_ptr<X509_STORE, SFreeWith<&X509_STORE_free>>;
using CStoreContextPtr = std::unique_ptr<X509_STORE_CTX, SFreeWith<&X509_STORE_CTX_free>>;
using CListPtr = std::unique_ptr<X509_CRL, SFreeWith<&X509_CRL_free>>;

constexpr long CLOCK_SKEW = 300;         // seconds
constexpr int64_t NO_NEXT_UPDATE = 3600; // seconds that an answer without an end counts

/// Empties OpenSSL's error queue when a function is done with it.
struct SQuiet
{
    SQuiet() { ERR_clear_error(); }
    ~SQuiet() { ERR_clear_error(); }
};

int64_t SecondsOf(const ASN1_TIME* pTime)
{
    tm parts{};
    if (pTime == nullptr || ASN1_TIME_to_tm(pTime, &parts) != 1)
        return NowSeconds() + NO_NEXT_UPDATE;
    return timegm(&parts);
}

/// A store that trusts the issuer alone: nobody else may speak about what it issued.
CStorePtr OnlyTrusting(X509& issuer)
{
    CStorePtr pStore(X509_STORE_new());
    if (pStore == nullptr || X509_STORE_add_cert(pStore.get(), &issuer) != 1)
        return nullptr;
    X509_STORE_set_flags(pStore.get(), X509_V_FLAG_PARTIAL_CHAIN);
    return pStore;
}

std::string AddressIn(const GENERAL_NAME& name)
{
    if (name.type != GEN_URI)
        return {};
    const ASN1_STRING* const pUri = name.d.uniformResourceIdentifier;
    std::string strUri(reinterpret_cast<const char*>(ASN1_STRING_get0_data(pUri)),
                       static_cast<size_t>(ASN1_STRING_length(pUri)));
    return strUri.find('\0') == std::string::npos ? strUri : std::string();
}

uint32_t ReasonOf(const X509_REVOKED* pEntry)
{
    const std::unique_ptr<ASN1_ENUMERATED, SFreeWith<&ASN1_ENUMERATED_free>> pReason(
        static_cast<ASN1_ENUMERATED*>(X509_REVOKED_get_ext_d2i(pEntry, NID_crl_reason, nullptr, nullptr)));
    return pReason == nullptr ? 0 : static_cast<uint32_t>(ASN1_ENUMERATED_get(pReason.get()));
}

} // namespace

std::vector<unsigned char> MakeOcspRequest(X509& certificate, X509& issuer)
{
    const SQuiet quiet;
    const COcspRequestPtr pRequest(OCSP_REQUEST_new());
    COcspIdPtr pId(OCSP_cert_to_id(nullptr, &certificate, &issuer));
    if (pRequest == nullptr || pId == nullptr || OCSP_request_add0_id(pRequest.get(), pId.get()) == nullptr)
        return {};
    (void)pId.release(); // the request's now
    unsigned char* pBytes = nullptr;
    const int iLength = i2d_OCSP_REQUEST(pRequest.get(), &pBytes);
    if (iLength <= 0)
        return {};
    std::vector<unsigned char> request(pBytes, pBytes + iLength);
    OPENSSL_free(pBytes);
    return request;
}

SRevocationAnswer ReadOcspAnswer(const std::vector<unsigned char>& answer, X509& certificate, X509& issuer)
{
    const SQuiet quiet;
    const unsigned char* pBytes = answer.data();
    const COcspResponsePtr pResponse(d2i_OCSP_RESPONSE(nullptr, &pBytes, static_cast<long>(answer.size())));
    if (pResponse == nullptr || OCSP_response_status(pResponse.get()) != OCSP_RESPONSE_STATUS_SUCCESSFUL)
        return {};
    const COcspBasicPtr pBasic(OCSP_response_get1_basic(pResponse.get()));
    const CStorePtr pStore = OnlyTrusting(issuer);
    const CX509StackPtr pSigners(sk_X509_new_null());
    if (pBasic == nullptr || pStore == nullptr || pSigners == nullptr ||
        X509_add_cert(pSigners.get(), &issuer, X509_ADD_FLAG_UP_REF) != 1 ||
        OCSP_basic_verify(pBasic.get(), pSigners.get(), pStore.get(), 0) != 1)
        return {};

    // Responders answer with the hash of their own choice, most with the one that was asked with.
    int iStatus = V_OCSP_CERTSTATUS_UNKNOWN;
    int iReason = 0;
    ASN1_GENERALIZEDTIME* pFrom = nullptr;
    ASN1_GENERALIZEDTIME* pUntil = nullptr;
    bool bFound = false;
    for (const EVP_MD* const pHash : {EVP_sha1(), EVP_sha256()}) {
        const COcspIdPtr pId(OCSP_cert_to_id(pHash, &certificate, &issuer));
        bFound = bFound || (pId != nullptr && OCSP_resp_find_status(pBasic.get(), pId.get(), &iStatus, &iReason,
                                                                    nullptr, &pFrom, &pUntil) == 1);
    }
    if (!bFound || OCSP_check_validity(pFrom, pUntil, CLOCK_SKEW, -1) != 1)
        return {};
    SRevocationAnswer result;
    result.iValidUntil = SecondsOf(pUntil);
    if (iStatus == V_OCSP_CERTSTATUS_GOOD)
        result.verdict = ERevocation::Good;
    else if (iStatus == V_OCSP_CERTSTATUS_REVOKED)
        result.verdict = ERevocation::Revoked;
    result.dwReason = iReason < 0 ? 0 : static_cast<uint32_t>(iReason);
    return result;
}

SRevocationAnswer ReadRevocationList(const std::vector<unsigned char>& list, X509& certificate, X509& issuer)
{
    const SQuiet quiet;
    const unsigned char* pBytes = list.data();
    const CListPtr pList(d2i_X509_CRL(nullptr, &pBytes, static_cast<long>(list.size())));
    const CStorePtr pStore = OnlyTrusting(issuer);
    const CStoreContextPtr pContext(X509_STORE_CTX_new());
    if (pList == nullptr || pStore == nullptr || pContext == nullptr ||
        X509_STORE_add_crl(pStore.get(), pList.get()) != 1 ||
        X509_STORE_CTX_init(pContext.get(), pStore.get(), &certificate, nullptr) != 1)
        return {};
    // The chain builder knows a list's signature, its dates and what it covers.
    X509_STORE_CTX_set_flags(pContext.get(), X509_V_FLAG_CRL_CHECK);
    const bool bGood = X509_verify_cert(pContext.get()) == 1;
    SRevocationAnswer result;
    result.iValidUntil = SecondsOf(X509_CRL_get0_nextUpdate(pList.get()));
    if (bGood) {
        result.verdict = ERevocation::Good;
    } else if (X509_STORE_CTX_get_error(pContext.get()) == X509_V_ERR_CERT_REVOKED) {
        result.verdict = ERevocation::Revoked;
        X509_REVOKED* pEntry = nullptr;
        if (X509_CRL_get0_by_cert(pList.get(), &pEntry, &certificate) == 1)
            result.dwReason = ReasonOf(pEntry);
    }
    return result;
}

std::vector<std::string> OcspAddresses(X509& certificate)
{
    const SQuiet quiet;
    std::vector<std::string> addresses;
    const std::unique_ptr<AUTHORITY_INFO_ACCESS, SFreeWith<&AUTHORITY_INFO_ACCESS_free>> pInfo(
        static_cast<AUTHORITY_INFO_ACCESS*>(X509_get_ext_d2i(&certificate, NID_info_access, nullptr, nullptr)));
    for (int i = 0; i < sk_ACCESS_DESCRIPTION_num(pInfo.get()); ++i) {
        const ACCESS_DESCRIPTION* const pAccess = sk_ACCESS_DESCRIPTION_value(pInfo.get(), i);
        if (OBJ_obj2nid(pAccess->method) == NID_ad_OCSP)
            addresses.push_back(AddressIn(*pAccess->location));
    }
    std::erase(addresses, std::string());
    return addresses;
}

std::vector<std::string> ListAddresses(X509& certificate)
{
    const SQuiet quiet;
    std::vector<std::string> addresses;
    const std::unique_ptr<CRL_DIST_POINTS, SFreeWith<&CRL_DIST_POINTS_free>> pPoints(
        static_cast<CRL_DIST_POINTS*>(X509_get_ext_d2i(&certificate, NID_crl_distribution_points, nullptr, nullptr)));
    for (int i = 0; i < sk_DIST_POINT_num(pPoints.get()); ++i) {
        const DIST_POINT_NAME* const pName = sk_DIST_POINT_value(pPoints.get(), i)->distpoint;
        if (pName == nullptr || pName->type != 0)
            continue;
        for (int j = 0; j < sk_GENERAL_NAME_num(pName->name.fullname); ++j)
            addresses.push_back(AddressIn(*sk_GENERAL_NAME_value(pName->name.fullname, j)));
    }
    std::erase(addresses, std::string());
    return addresses;
}

} // namespace Platform
