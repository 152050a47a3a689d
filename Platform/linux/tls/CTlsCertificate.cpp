#include "Platform/CTlsCertificate.h"

#include "Platform/Clock.h"
#include "Platform/linux/tls/TlsHandles.h"

#include <ctime>
#include <openssl/x509v3.h>
#include <string_view>

namespace Platform {

namespace {

std::string Utf8(const ASN1_STRING* pText)
{
    unsigned char* pUtf8 = nullptr;
    const int iLength = ASN1_STRING_to_UTF8(&pUtf8, pText);
    if (iLength < 0) {
        ERR_clear_error();
        return {};
    }
    std::string strText(reinterpret_cast<const char*>(pUtf8), static_cast<size_t>(iLength));
    OPENSSL_free(pUtf8);
    return strText;
}

/// A value that would be mistaken for something else stands in quotes.
std::string Quoted(const std::string& strValue)
{
    constexpr std::string_view SPECIAL = ",+=\"\n<>#;";
    const bool bPlain = strValue.find_first_of(SPECIAL) == std::string::npos && !strValue.empty() &&
                        strValue.front() != ' ' && strValue.back() != ' ';
    if (bPlain)
        return strValue;
    std::string strQuoted = "\"";
    for (const char c : strValue)
        strQuoted.append(c == '"' ? 2 : 1, c);
    return strQuoted + '"';
}

std::string SimpleText(const X509_NAME* pName)
{
    std::string strText;
    int iLastSet = -1;
    for (int i = 0; i < X509_NAME_entry_count(pName); ++i) {
        const X509_NAME_ENTRY* const pEntry = X509_NAME_get_entry(pName, i);
        const int iSet = X509_NAME_ENTRY_set(pEntry);
        if (i > 0)
            strText += iSet == iLastSet ? " + " : ", ";
        strText += Quoted(Utf8(X509_NAME_ENTRY_get_data(pEntry)));
        iLastSet = iSet;
    }
    return strText;
}

} // namespace

std::string Fingerprint(const X509& certificate)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int nLength = 0;
    X509_digest(&certificate, EVP_sha256(), digest, &nLength);
    return {reinterpret_cast<const char*>(digest), nLength};
}

std::string CTlsCertificate::CommonName() const
{
    if (IsEmpty())
        return {};
    const X509_NAME* const pName = X509_get_subject_name(m_pData->pCertificate.get());
    const int iIndex = X509_NAME_get_index_by_NID(pName, NID_commonName, -1);
    return iIndex < 0 ? std::string() : Utf8(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(pName, iIndex)));
}

std::string CTlsCertificate::SubjectText() const
{
    return IsEmpty() ? std::string() : SimpleText(X509_get_subject_name(m_pData->pCertificate.get()));
}

std::string CTlsCertificate::IssuerText() const
{
    return IsEmpty() ? std::string() : SimpleText(X509_get_issuer_name(m_pData->pCertificate.get()));
}

std::vector<std::string> CTlsCertificate::DnsNames() const
{
    std::vector<std::string> names;
    if (IsEmpty())
        return names;
    const std::unique_ptr<GENERAL_NAMES, SFreeWith<&GENERAL_NAMES_free>> pNames(static_cast<GENERAL_NAMES*>(
        X509_get_ext_d2i(m_pData->pCertificate.get(), NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; i < sk_GENERAL_NAME_num(pNames.get()); ++i) {
        const GENERAL_NAME* const pName = sk_GENERAL_NAME_value(pNames.get(), i);
        if (pName->type == GEN_DNS)
            names.push_back(Utf8(pName->d.dNSName));
    }
    return names;
}

bool CTlsCertificate::IsValidNow() const
{
    return !IsEmpty() && X509_cmp_current_time(X509_get0_notBefore(m_pData->pCertificate.get())) < 0 &&
           X509_cmp_current_time(X509_get0_notAfter(m_pData->pCertificate.get())) > 0;
}

int64_t CTlsCertificate::NotAfter() const
{
    tm parts{};
    if (IsEmpty() || ASN1_TIME_to_tm(X509_get0_notAfter(m_pData->pCertificate.get()), &parts) != 1)
        return 0;
    return timegm(&parts);
}

} // namespace Platform
