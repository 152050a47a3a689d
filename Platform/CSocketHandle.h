#pragma once

#include "Platform/SocketAddress.h"
#include "Platform/SocketErrors.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Platform {

class CDescriptor;

enum class ESocketWait { Ready, TimedOut, Failed };

/// A TCP socket. Owned and used by one thread, except that Interrupt may come from any. Operations answer false or -1
/// and set LastSocketError.
class CSocketHandle
{
public:
    static constexpr uint32_t NO_LIMIT = 0xFFFFFFFFu;
    static constexpr uint64_t NO_DEADLINE = UINT64_MAX;

    CSocketHandle();
    ~CSocketHandle();
    CSocketHandle(CSocketHandle&& other) noexcept;
    CSocketHandle& operator=(CSocketHandle&& other) noexcept;

    bool Create(int iFamily); ///< a stream socket; IPv6 sockets take IPv6 only
    bool IsOpen() const;
    bool Close();
    bool Bind(const SSocketAddress& address);
    bool Listen(int iBacklog);
    /// Waits for a connection without limit; null-like (not open) result: false.
    bool Accept(CSocketHandle& accepted, SSocketAddress& peer);
    /// Bounded by the deadline and by the system's own connect time-out; an Interrupt ends it with SOCKET_CANCELED.
    bool Connect(const SSocketAddress& address);
    /// From that moment (TickCount) on every wait times out, ready or not, until the next one is set. Outlives Close.
    void SetDeadline(uint64_t ui64TickCount);
    ESocketWait WaitReadable(uint32_t dwSeconds); ///< NO_LIMIT waits without limit; an Interrupt ends it: TimedOut
    ESocketWait WaitWritable(uint32_t dwSeconds);
    int64_t Receive(void* pBuffer, size_t nCount);                        ///< once; 0: the peer closed
    int64_t Send(const void* pBuffer, size_t nCount, uint32_t dwSeconds); ///< all of it; each wait at most that long
    bool ShutdownSending();
    bool LocalAddress(SSocketAddress& address) const;
    bool PeerAddress(SSocketAddress& address) const;
    /// Ends what a thread waits for in this socket, now and in any later wait, until the socket is closed; when none
    /// is open, the next one. Any thread; the owner keeps the object alive and in its place meanwhile.
    void Interrupt();

private:
    bool Adopt(CDescriptor&& made);

    struct SState;
    std::unique_ptr<SState> m_pState; ///< none once moved from
};

} // namespace Platform
