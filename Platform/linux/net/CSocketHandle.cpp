#include "Platform/CSocketHandle.h"

#include "Platform/Clock.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/net/NativeAddress.h"
#include "Platform/linux/net/SocketFailure.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>

namespace Platform {

namespace {

// Longer than the kernel's own time-out with its usual six repetitions (127 s), for machines that set more.
constexpr uint32_t CONNECT_SECONDS = 130;
constexpr uint64_t MILLIS_PER_SECOND = 1000;

bool SetFlag(int iSocket, int iLevel, int iOption)
{
    const int iOn = 1;
    return setsockopt(iSocket, iLevel, iOption, &iOn, sizeof(iOn)) == 0 || FailSocketWithErrno();
}

/// A lost peer is told by the connection, not by the listener: the next connection may be waiting already.
bool IsPassing(int iErrno)
{
    return iErrno == EAGAIN || iErrno == EINTR || iErrno == ECONNABORTED || iErrno == EPROTO || iErrno == ENETDOWN ||
           iErrno == EHOSTUNREACH || iErrno == ENETUNREACH || iErrno == EHOSTDOWN;
}

/// Of a wait that ends at a moment; as poll takes it.
int MillisLeft(uint64_t ui64End)
{
    if (ui64End == CSocketHandle::NO_DEADLINE)
        return -1;
    const uint64_t ui64Now = TickCount();
    return static_cast<int>(std::min<uint64_t>(ui64End - std::min(ui64End, ui64Now), INT_MAX));
}

} // namespace

/// Lives as long as the handle, so that an Interrupt finds its event whatever the owner does with the socket.
struct CSocketHandle::SState
{
    CDescriptor socket;
    CDescriptor interrupt{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::atomic<bool> bInterrupted = false; ///< the event is set; asking this one costs nothing
    uint64_t ui64Deadline = NO_DEADLINE;

    enum class EEnd { Ready, Interrupted, TimedOut, Failed };
    EEnd Wait(short nEvents, uint32_t dwSeconds)
    {
        const uint64_t ui64Now = TickCount();
        if (ui64Now >= ui64Deadline) // also when there is something: a busy peer must not outlast it
            return EEnd::TimedOut;
        const uint64_t ui64End =
            dwSeconds == NO_LIMIT ? ui64Deadline : std::min(ui64Deadline, ui64Now + dwSeconds * MILLIS_PER_SECOND);
        for (;;) {
            pollfd polled[] = {{socket.Get(), nEvents, 0}, {interrupt.Get(), POLLIN, 0}};
            const int iMillis = MillisLeft(ui64End);
            const int iReady = poll(polled, 2, iMillis);
            if (iReady < 0 && errno != EINTR) {
                FailSocketWithErrno();
                return EEnd::Failed;
            }
            if (iReady > 0)
                return polled[1].revents != 0 ? EEnd::Interrupted : EEnd::Ready;
            if (iReady == 0 && iMillis != INT_MAX)
                return EEnd::TimedOut;
        }
    }
    /// Whether a wait may end otherwise than by the socket.
    bool HasToWait() const { return !socket.IsValid() || bInterrupted || TickCount() >= ui64Deadline; }
    ESocketWait WaitForUser(short nEvents, uint32_t dwSeconds)
    {
        if (!socket.IsValid()) {
            SetLastSocketError(SOCKET_NOT_A_SOCKET);
            return ESocketWait::Failed;
        }
        switch (Wait(nEvents, dwSeconds)) {
        case EEnd::Ready:
            return ESocketWait::Ready;
        case EEnd::Failed:
            return ESocketWait::Failed;
        default:
            return ESocketWait::TimedOut;
        }
    }
    bool FinishConnect()
    {
        switch (Wait(POLLOUT, CONNECT_SECONDS)) {
        case EEnd::Ready:
            break;
        case EEnd::Interrupted:
            return FailSocket(SOCKET_CANCELED);
        case EEnd::TimedOut:
            return FailSocket(SOCKET_TIMED_OUT);
        case EEnd::Failed:
            return false;
        }
        int iError = 0;
        socklen_t nLength = sizeof(iError);
        if (getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &iError, &nLength) != 0)
            return FailSocketWithErrno();
        return iError == 0 || FailSocket(SocketErrorFromErrno(iError));
    }
};

CSocketHandle::CSocketHandle() : m_pState(std::make_unique<SState>()) {}

CSocketHandle::~CSocketHandle() = default;

CSocketHandle::CSocketHandle(CSocketHandle&& other) noexcept = default;

CSocketHandle& CSocketHandle::operator=(CSocketHandle&& other) noexcept = default;

bool CSocketHandle::Create(int iFamily)
{
    Close();
    const int iNative = NativeFamily(iFamily);
    if (iNative == AF_UNSPEC)
        return FailSocket(SOCKET_NO_SUCH_FAMILY);
    CDescriptor made(socket(iNative, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
    if (!made.IsValid())
        return FailSocketWithErrno();
    // A command waits for its reply: holding back small segments only costs time.
    if (!SetFlag(made.Get(), IPPROTO_TCP, TCP_NODELAY))
        return false;
    if (iNative == AF_INET6 && !SetFlag(made.Get(), IPPROTO_IPV6, IPV6_V6ONLY))
        return false;
    return Adopt(std::move(made));
}

bool CSocketHandle::Adopt(CDescriptor&& made)
{
    if (!m_pState)
        m_pState = std::make_unique<SState>();
    if (!m_pState->interrupt.IsValid())
        return FailSocket(SocketErrorFromErrno(EMFILE));
    m_pState->socket = std::move(made);
    return true;
}

bool CSocketHandle::IsOpen() const { return m_pState && m_pState->socket.IsValid(); }

bool CSocketHandle::Close()
{
    if (!IsOpen())
        return true;
    eventfd_t ui64Count = 0;
    if (m_pState->bInterrupted.exchange(false))
        eventfd_read(m_pState->interrupt.Get(), &ui64Count);
    return close(m_pState->socket.Release()) == 0 || errno == EINTR || FailSocketWithErrno();
}

bool CSocketHandle::Bind(const SSocketAddress& address)
{
    SNativeAddress native;
    if (!IsOpen())
        return FailSocket(SOCKET_NOT_A_SOCKET);
    if (!ToNative(address, native))
        return false;
    // A port that serves all destinations at once is searched for long, and there are few of them.
    if (address.wPort == 0)
        SetFlag(m_pState->socket.Get(), IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT);
    return bind(m_pState->socket.Get(), native.Get(), native.nLength) == 0 || FailSocketWithErrno();
}

bool CSocketHandle::Listen(int iBacklog)
{
    if (!IsOpen())
        return FailSocket(SOCKET_NOT_A_SOCKET);
    return listen(m_pState->socket.Get(), iBacklog) == 0 || FailSocketWithErrno();
}

bool CSocketHandle::Accept(CSocketHandle& accepted, SSocketAddress& peer)
{
    if (!IsOpen())
        return FailSocket(SOCKET_NOT_A_SOCKET);
    for (;;) {
        switch (m_pState->Wait(POLLIN, NO_LIMIT)) {
        case SState::EEnd::Ready:
            break;
        case SState::EEnd::Failed:
            return false;
        default:
            return FailSocket(SOCKET_CANCELED);
        }
        SNativeAddress native;
        CDescriptor made(accept4(m_pState->socket.Get(), native.Get(), &native.nLength, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!made.IsValid() && IsPassing(errno))
            continue;
        if (!made.IsValid())
            return FailSocketWithErrno();
        if (!SetFlag(made.Get(), IPPROTO_TCP, TCP_NODELAY))
            return false;
        accepted.Close();
        peer = FromNative(native.Get());
        return accepted.Adopt(std::move(made));
    }
}

bool CSocketHandle::Connect(const SSocketAddress& address)
{
    SNativeAddress native;
    if (!IsOpen())
        return FailSocket(SOCKET_NOT_A_SOCKET);
    if (!ToNative(address, native))
        return false;
    if (connect(m_pState->socket.Get(), native.Get(), native.nLength) == 0)
        return true;
    if (errno != EINPROGRESS && errno != EINTR) // interrupted, it goes on all the same
        return FailSocketWithErrno();
    return m_pState->FinishConnect();
}

void CSocketHandle::SetDeadline(uint64_t ui64TickCount)
{
    if (m_pState)
        m_pState->ui64Deadline = ui64TickCount;
}

ESocketWait CSocketHandle::WaitReadable(uint32_t dwSeconds)
{
    if (m_pState)
        return m_pState->WaitForUser(POLLIN, dwSeconds);
    SetLastSocketError(SOCKET_NOT_A_SOCKET);
    return ESocketWait::Failed;
}

ESocketWait CSocketHandle::WaitWritable(uint32_t dwSeconds)
{
    if (m_pState)
        return m_pState->WaitForUser(POLLOUT, dwSeconds);
    SetLastSocketError(SOCKET_NOT_A_SOCKET);
    return ESocketWait::Failed;
}

int64_t CSocketHandle::Receive(void* pBuffer, size_t nCount)
{
    if (!IsOpen()) {
        SetLastSocketError(SOCKET_NOT_A_SOCKET);
        return -1;
    }
    ssize_t nReceived = 0;
    do {
        nReceived = recv(m_pState->socket.Get(), pBuffer, nCount, 0);
    } while (nReceived < 0 && errno == EINTR);
    if (nReceived < 0)
        FailSocketWithErrno();
    return nReceived;
}

int64_t CSocketHandle::Send(const void* pBuffer, size_t nCount, uint32_t dwSeconds)
{
    const auto* pNext = static_cast<const char*>(pBuffer);
    size_t nLeft = nCount;
    bool bMayBlock = !m_pState || m_pState->HasToWait(); // what mostly goes at once is not waited for first
    do {
        const ESocketWait wait = bMayBlock ? WaitWritable(dwSeconds) : ESocketWait::Ready;
        if (wait == ESocketWait::TimedOut)
            SetLastSocketError(SOCKET_ABORTED);
        if (wait != ESocketWait::Ready)
            return -1;
        bMayBlock = true;
        const ssize_t nSent = send(m_pState->socket.Get(), pNext, nLeft, MSG_NOSIGNAL);
        if (nSent < 0 && errno != EAGAIN && errno != EINTR) {
            FailSocketWithErrno();
            return -1;
        }
        if (nSent > 0) {
            pNext += nSent;
            nLeft -= static_cast<size_t>(nSent);
        }
    } while (nLeft > 0);
    return static_cast<int64_t>(nCount);
}

bool CSocketHandle::ShutdownSending()
{
    if (!IsOpen())
        return FailSocket(SOCKET_NOT_A_SOCKET);
    return shutdown(m_pState->socket.Get(), SHUT_WR) == 0 || FailSocketWithErrno();
}

bool CSocketHandle::LocalAddress(SSocketAddress& address) const
{
    SNativeAddress native;
    if (!IsOpen())
        return FailSocket(SOCKET_NOT_A_SOCKET);
    if (getsockname(m_pState->socket.Get(), native.Get(), &native.nLength) != 0)
        return FailSocketWithErrno();
    address = FromNative(native.Get());
    return true;
}

bool CSocketHandle::PeerAddress(SSocketAddress& address) const
{
    SNativeAddress native;
    if (!IsOpen())
        return FailSocket(SOCKET_NOT_A_SOCKET);
    if (getpeername(m_pState->socket.Get(), native.Get(), &native.nLength) != 0)
        return FailSocketWithErrno();
    address = FromNative(native.Get());
    return true;
}

void CSocketHandle::Interrupt()
{
    if (m_pState) {
        eventfd_write(m_pState->interrupt.Get(), 1); // a counter that is full is set already
        m_pState->bInterrupted = true;               // last: a Close that sees it finds the event
    }
}

} // namespace Platform
