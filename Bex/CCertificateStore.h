#pragma once

#include "Bex/CSimpleString.h"
#include "Platform/CTlsCertificateStore.h"

namespace Bex {

/// A personal certificate store (where: Platform/TlsCertificate.h). Raises CCertificateException. Used by one thread.
class CCertificateStore
{
public:
    void Open(bool bMachine); ///< the machine's or the user's; E_INVALIDARG when it is open, the system error else
    void Close() { m_store.Close(); }
    bool IsOpen() const { return m_store.IsOpen(); }

    /// The certificate whose common name, subject or one of whose DNS names is this, whatever the case of ASCII
    /// letters. Of several, one that is valid now and expires last, else the one that expires last.
    /// CRYPT_E_NOT_FOUND: there is none; E_INVALIDARG: the store is not open.
    Platform::CTlsCertificate FindCertificate(const CSimpleString& strName) const;

    const Platform::CTlsCertificateStore& Handle() const { return m_store; }

private:
    Platform::CTlsCertificateStore m_store;
};

} // namespace Bex
