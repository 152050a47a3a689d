#include "Platform/CSocketHandle.h"

#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/net/NativeAddress.h"
#include "Platform/linux/net/SocketFailure.h"
#include "Platform/linux/thread/PollWithin.h"

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>

namespace Platform {

namespace {

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

} // namespace

struct CSocketHandle::SState
{
    CDescriptor socket;
    CWaitLimit limit;

    EPollEnd Wait(short nEvents, uint32_t dwSeconds) const
    {
        if (!limit.HasTimeLeft()) // also when there is something: a busy peer must not outlast it
            return EPollEnd::TimedOut;
        pollfd polled{socket.Get(), nEvents, 0};
        const EPollEnd end =
            PollWithin({&polled, 1}, dwSeconds == NO_LIMIT ? limit : limit.AtMost(dwSeconds * MILLIS_PER_SECOND));
        if (end == EPollEnd::Failed)
            FailSocketWithErrno();
        return end;
    }
    ESocketWait WaitForUser(short nEvents, uint32_t dwSeconds) const
    {
        if (!socket.IsValid()) {
            SetLastSocketError(SOCKET_NOT_A_SOCKET);
            return ESocketWait::Failed;
        }
        switch (Wait(nEvents, dwSeconds)) {
        case EPollEnd::Ready:
            return ESocketWait::Ready;
        case EPollEnd::Failed:
            return ESocketWait::Failed;
        default:
            return ESocketWait::TimedOut;
        }
    }
    bool FinishConnect(uint32_t dwSeconds) const
    {
        switch (Wait(POLLOUT, dwSeconds)) {
        case EPollEnd::Ready:
            break;
        case EPollEnd::Stopped:
            return FailSocket(SOCKET_CANCELED);
        case EPollEnd::TimedOut:
            return FailSocket(SOCKET_TIMED_OUT);
        case EPollEnd::Failed:
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
    m_pState->socket = std::move(made);
    return true;
}

bool CSocketHandle::IsOpen() const { return m_pState && m_pState->socket.IsValid(); }

bool CSocketHandle::Close()
{
    if (!IsOpen())
        return true;
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
        case EPollEnd::Ready:
            break;
        case EPollEnd::Failed:
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

bool CSocketHandle::Connect(const SSocketAddress& address, uint32_t dwSeconds)
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
    return m_pState->FinishConnect(dwSeconds);
}

void CSocketHandle::SetLimit(const CWaitLimit& limit)
{
    if (!m_pState)
        m_pState = std::make_unique<SState>();
    m_pState->limit = limit;
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
    // What mostly goes at once is not waited for first.
    bool bMayBlock = !IsOpen() || m_pState->limit.IsOver();
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

} // namespace Platform
