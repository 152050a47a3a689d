#pragma once

#include "Bex/CSocket.h"

#include <memory>
#include <vector>

namespace Bex {

/// A TCP socket that can be switched to TLS, at connect time or later (RFC 8446, RFC 5246); both ends. Raises
/// CSecurityException for what TLS and the certificate checks refuse, besides what CSocket raises. Owned and used by
/// one thread.
class CSecureSocket : public CSocket
{
public:
    CSecureSocket();
    ~CSecureSocket() override;

    void Close() override; ///< sends the close notification first
    void Connect(const Platform::SSocketAddress& address) override;
    void Connect(const CSimpleString& strHost, uint16_t wPort) override;
    void Listen(int iBacklog) override;
    uint32_t Receive(void* pBuffer, uint32_t nLength, int iFlags) override;
    bool Shutdown(int iHow) noexcept override;
    using CSocket::Accept;
    using CSocket::Send;
    uint32_t Send(const void* pBuffer, uint32_t nLength, int iFlags) override;
    virtual void Accept(CSecureSocket& accepted, Platform::SSocketAddress& peer);
    virtual void Accept(CSecureSocket& accepted, CSocketEndPoint& peer);
    virtual void Connect(const Platform::SSocketAddress& address, const CSimpleString& strTargetName);
    virtual void Connect(const CSimpleString& strHost, uint16_t wPort, const CSimpleString& strTargetName);
    virtual void Start(); ///< of an accepted socket: the handshake, when secure
    /// Asked when the check of the peer's certificate failed; true accepts it all the same.
    virtual bool VerifyCertificate(uint32_t dwStatus);

    bool Negotiate(const CSimpleString& strTargetName); ///< switches to TLS; what came in clear before is dropped

    bool IsSecure() const { return m_bSecure; }
    bool IsEstablished() const { return m_bEstablished; }
    void SetSecure(bool bSecure) { m_bSecure = bSecure; }
    void SetCertificateName(const CSimpleString& strName) { m_strCertificateName = strName; }
    void SetMachineStore(bool bMachine) { m_bMachineStore = bMachine; }
    void SetProtocols(uint32_t dwProtocols) { m_dwProtocols = dwProtocols; } ///< 0: the platform's choice
    void SetCheckCertificate(bool bCheck) { m_bCheckCertificate = bCheck; }

    static uint32_t ParseCipherProtocols(const CSimpleString& strNames);

private:
    struct SChannel; ///< credentials, context and buffers

    bool m_bSecure = false;
    bool m_bServer = false;
    CSimpleString m_strCertificateName;
    bool m_bMachineStore = false;
    uint32_t m_dwProtocols = 0;
    bool m_bCheckCertificate = true;
    bool m_bEstablished = false;
    std::unique_ptr<SChannel> m_pChannel;
};

} // namespace Bex
