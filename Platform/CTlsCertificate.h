#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Platform {

struct STlsCertificateData; ///< the platform's own

/// A certificate with what came along with it: the certificates above it, where its private key is, a revocation
/// answer that the peer enclosed. A value; copies share what never changes. Any thread.
class CTlsCertificate
{
public:
    CTlsCertificate() = default; ///< none: no names, never valid
    explicit CTlsCertificate(std::shared_ptr<const STlsCertificateData> pData) : m_pData(std::move(pData)) {}

    bool IsEmpty() const { return m_pData == nullptr; }
    std::string CommonName() const;  ///< attribute 2.5.4.3 of the subject; empty when there is none
    std::string SubjectText() const; ///< the values of the name's attributes, joined with ", "
    std::string IssuerText() const;
    std::vector<std::string> DnsNames() const;
    bool IsValidNow() const;
    int64_t NotAfter() const; ///< seconds since 1970-01-01 UTC
    const STlsCertificateData* Data() const { return m_pData.get(); }

private:
    std::shared_ptr<const STlsCertificateData> m_pData;
};

} // namespace Platform
