#pragma once

#include "Platform/CWaitLimit.h"
#include "Platform/SocketAddress.h"
#include "Platform/SocketErrors.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Platform {

class CDescriptor;

enum class ESocketWait { Ready, TimedOut, Failed };

/// A TCP socket. Owned and used by one thread. Operations answer false or -1 and set LastSocketError.
class CSocketHandle
{
public:
    static constexpr uint32_t NO_LIMIT = 0xFFFFFFFFu;

    CSocketHandle();
    ~CSocketHandle();
    CSocketHandle(CSocketHandle&& other) noexcept;
    CSocketHandle& operator=(CSocketHandle&& other) noexcept;

    bool Create(int iFamily); ///< a stream socket; IPv6 sockets take IPv6 only
    bool IsOpen() const;
    bool Close();
    bool Bind(const SSocketAddress& address);
    bool Listen(int iBacklog);
    /// Waits for a connection; the end of the limit is SOCKET_CANCELED. Null-like (not open) result: false.
    bool Accept(CSocketHandle& accepted, SSocketAddress& peer);
    /// Bounded by the system's own connect time-out, too; a stop ends it with SOCKET_CANCELED.
    bool Connect(const SSocketAddress& address, uint32_t dwSeconds);
    /// For every wait from now on: once it is over, by time or by its stop, they time out, ready or not, until the
    /// next limit is set. Outlives Close.
    void SetLimit(const CWaitLimit& limit);
    ESocketWait WaitReadable(uint32_t dwSeconds); ///< NO_LIMIT: as long as the socket's own limit lets it
    ESocketWait WaitWritable(uint32_t dwSeconds);
    int64_t Receive(void* pBuffer, size_t nCount);                        ///< once; 0: the peer closed
    int64_t Send(const void* pBuffer, size_t nCount, uint32_t dwSeconds); ///< all of it; each wait at most that long
    bool ShutdownSending();
    bool LocalAddress(SSocketAddress& address) const;
    bool PeerAddress(SSocketAddress& address) const;

private:
    bool Adopt(CDescriptor&& made);

    struct SState;
    std::unique_ptr<SState> m_pState; ///< none once moved from
};

} // namespace Platform
