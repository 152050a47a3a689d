#pragma once

#include "Bex/CCertificateStore.h"
#include "Bex/CSocket.h"
#include "Platform/CTlsContext.h"

#include <vector>

namespace Platform {
struct STlsChain;
} // namespace Platform

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

    /// Switches to TLS. What came in clear before is never taken for a part of it: bytes that a caller received are
    /// the caller's to drop, and bytes that are still to be received fail the handshake.
    bool Negotiate(const CSimpleString& strTargetName);

    bool HasInput(); ///< something that nobody has received, be it that the peer closed; never waits
    bool IsEstablished() const { return m_bEstablished; }
    bool IsResumed() const { return m_context.IsResumed(); } ///< went on with an earlier session
    void SetSecure(bool bSecure) { m_bSecure = bSecure; }
    void SetCertificateName(const CSimpleString& strName) { m_strCertificateName = strName; }
    void SetMachineStore(bool bMachine) { m_bMachineStore = bMachine; }
    void SetProtocols(uint32_t dwProtocols) { m_dwProtocols = dwProtocols; } ///< 0: the platform's choice
    void SetCheckCertificate(bool bCheck) { m_bCheckCertificate = bCheck; }

    /// The mask of "TLS1_2,TLS1_3" and the like. Names that are unknown, also because of a blank, count for nothing.
    static uint32_t ParseCipherProtocols(const CSimpleString& strNames);

private:
    /// Bytes with room for more behind them.
    struct SReceived
    {
        std::vector<uint8_t> bytes; ///< its size is the capacity
        size_t nUsed = 0;

        void Grow(size_t nCapacity); ///< keeps what is in it
        void Keep(const Platform::STlsBuffer& extra);
    };

    Platform::ETlsEnd End() const { return m_bServer ? Platform::ETlsEnd::Server : Platform::ETlsEnd::Client; }
    void Forget();
    void CreateCredentials();
    void FindLocalCertificate();
    void ClientHandshake(const CSimpleString& strTargetName);
    void ServerHandshake();
    void HandshakeLoop(bool bRead);
    void HandshakePass(uint32_t& dwStatus, uint32_t& dwRequest, bool& bRead);
    void SendToken(const Platform::STlsToken& token, uint32_t dwNothingSent);
    void Renegotiate();
    void AcceptPeer(const CSimpleString& strTargetName);
    void CheckPeer(const CSimpleString& strTargetName);
    uint32_t VerifyChain(const Platform::CTlsCertificate& certificate, const CSimpleString& strTargetName) const;
    uint32_t CheckRevocation(const Platform::STlsChain& chain) const;
    uint32_t ReadMore();
    uint32_t TakePending(void* pBuffer, uint32_t nLength);
    void DecryptSome();
    bool DecryptRecord(uint32_t& dwStatus);
    Platform::STlsStreamSizes StreamSizes() const;
    void ShutdownTls();
    void TryShutdownTls() noexcept;

    bool m_bSecure = false;
    bool m_bServer = false;
    CSimpleString m_strCertificateName;
    bool m_bMachineStore = false;
    uint32_t m_dwProtocols = 0;
    Platform::CTlsCertificate m_localCertificate;
    bool m_bCheckCertificate = true;
    CCertificateStore m_store; ///< open until the socket is destroyed
    Platform::STlsCredentialSettings m_settings;
    Platform::CTlsCredentials m_credentials;
    Platform::CTlsContext m_context;
    bool m_bEstablished = false;
    CSimpleString m_strTargetName;  ///< of the last handshake, for the check after a renegotiation
    std::vector<uint8_t> m_pending; ///< decrypted, not yet given to a caller
    size_t m_nPendingTaken = 0;     ///< of m_pending, from its front
    SReceived m_received;           ///< encrypted, not yet consumed
};

} // namespace Bex
