#include "Bex/CCertificateStore.h"

#include "Bex/CCertificateException.h"
#include "Bex/TextFunctions.h"
#include "Platform/Errors.h"
#include "Platform/TlsStatus.h"

#include <algorithm>
#include <utility>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CCertificateStore";

bool HasName(const Platform::CTlsCertificate& certificate, std::string_view name)
{
    if (EqualNoCase(certificate.CommonName(), name) || EqualNoCase(certificate.SubjectText(), name))
        return true;
    const std::vector<std::string> names = certificate.DnsNames();
    return std::any_of(names.begin(), names.end(),
                       [name](const std::string& strDnsName) { return EqualNoCase(strDnsName, name); });
}

std::pair<bool, int64_t> Rank(const Platform::CTlsCertificate& certificate)
{
    return {certificate.IsValidNow(), certificate.NotAfter()};
}

} // namespace

void CCertificateStore::Open(bool bMachine)
{
    if (IsOpen())
        ThrowCertificateException(SOURCE_FILE, __LINE__, Platform::E_INVALIDARG);
    if (!m_store.Open(bMachine ? Platform::ETlsStore::Machine : Platform::ETlsStore::User))
        ThrowCertificateException(SOURCE_FILE, __LINE__, Platform::LastError().dwSysError);
}

Platform::CTlsCertificate CCertificateStore::FindCertificate(const CSimpleString& strName) const
{
    if (!IsOpen())
        ThrowCertificateException(SOURCE_FILE, __LINE__, Platform::E_INVALIDARG);
    Platform::CTlsCertificate best;
    for (const Platform::CTlsCertificate& candidate : m_store.Certificates()) {
        if (HasName(candidate, strName) && (best.IsEmpty() || Rank(candidate) > Rank(best)))
            best = candidate;
    }
    if (best.IsEmpty())
        ThrowCertificateException(SOURCE_FILE, __LINE__, Platform::CRYPT_E_NOT_FOUND);
    return best;
}

} // namespace Bex
