#pragma once

#include "Bex/CSocketEndPoint.h"
#include "Platform/CSocketHandle.h"

namespace Bex {

/// A TCP socket that waits at most its time-out and raises CSocketException for every failure; an expired wait or a
/// socket that is not open is error 10053. Owned and used by one thread.
class CSocket
{
public:
    static constexpr uint32_t NO_LIMIT = Platform::CSocketHandle::NO_LIMIT;

    CSocket() = default;
    CSocket(const CSocket&) = delete;
    CSocket& operator=(const CSocket&) = delete;

    virtual ~CSocket();
    virtual void Accept(CSocket& accepted, Platform::SSocketAddress& peer);
    virtual void Accept(CSocket& accepted, CSocketEndPoint& peer);
    virtual int AcceptCondition(const Platform::SSocketAddress& peer); ///< 0 accepts
    virtual void Close();
    virtual void Connect(const Platform::SSocketAddress& address);
    virtual void Connect(const CSimpleString& strHost, uint16_t wPort); ///< a literal or a name, of the socket's family
    virtual void Listen(int iBacklog);
    virtual uint32_t Receive(void* pBuffer, uint32_t nLength, int iFlags); ///< 0: the peer closed
    virtual bool Shutdown(int iHow) noexcept;                              ///< the sending direction
    virtual uint32_t Send(const char* pszText);
    virtual uint32_t Send(const void* pBuffer, uint32_t nLength, int iFlags); ///< all of it

    void Create(int iFamily);                        ///< closes what was open
    void Bind(const CSimpleString& strLocalAddress); ///< empty: any address
    bool IsOpen() const { return m_handle.IsOpen(); }
    int Family() const { return m_iFamily; }
    void SetTimeout(uint32_t dwSeconds) { m_dwTimeout = dwSeconds; } ///< NO_LIMIT: no limit
    /// Ends all waits, besides their own time-out, however often the peer moves.
    void SetLimit(const Platform::CWaitLimit& limit);
    const Platform::CWaitLimit& Limit() const { return m_limit; }
    void SetConditionalAccept(bool bConditional) { m_bConditionalAccept = bConditional; }
    CSocketEndPoint LocalEndPoint() const;
    CSocketEndPoint PeerEndPoint() const;

protected:
    Platform::CSocketHandle m_handle;
    int m_iFamily = Platform::FAMILY_IPV4;
    uint32_t m_dwTimeout = NO_LIMIT;
    Platform::CWaitLimit m_limit;
    bool m_bConditionalAccept = false;
};

} // namespace Bex
