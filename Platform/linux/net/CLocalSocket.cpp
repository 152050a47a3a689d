#include "Platform/CLocalSocket.h"

#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/net/LocalAddress.h"
#include "Platform/linux/thread/PollWithin.h"

#include <algorithm>
#include <poll.h>

namespace Platform {

namespace {

constexpr uint64_t FULL_QUEUE_MILLIS = 10; ///< between tries while the listener's queue is full, which nothing tells of

bool FailWith(SError error)
{
    SetLastError(error);
    return false;
}

/// For another round after a call that would have blocked or was interrupted.
bool MayGoOn() { return errno == EAGAIN || errno == EINTR; }

} // namespace

CLocalSocket::CLocalSocket() : m_pSocket(std::make_unique<CDescriptor>()) {}

CLocalSocket::~CLocalSocket() = default;

CLocalSocket::CLocalSocket(CLocalSocket&& other) noexcept = default;

CLocalSocket& CLocalSocket::operator=(CLocalSocket&& other) noexcept = default;

bool CLocalSocket::IsOpen() const { return m_pSocket && m_pSocket->IsValid(); }

void CLocalSocket::Close() { *this = CLocalSocket(); }

bool CLocalSocket::Connect(const char* pszPath, const CWaitLimit& limit)
{
    Close();
    SLocalAddress address;
    if (!address.Set(pszPath))
        return false;
    CDescriptor made(GuardedCall({EFault::LocalSocket},
                                 [] { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }));
    if (!made.IsValid())
        return FailWithErrno();
    while (GuardedCall({EFault::LocalSocket}, [&] { return connect(made.Get(), address.Get(), address.nLength); }) !=
           0) {
        if (!MayGoOn())
            return FailWithErrno();
        if (limit.IsStopped())
            return FailWith({LIB_INTERRUPTED, SYS_OPERATION_ABORTED});
        if (!limit.HasTimeLeft())
            return FailWith({LIB_TIMED_OUT, SYS_TIMEOUT});
        PollWithin({}, limit.AtMost(FULL_QUEUE_MILLIS));
    }
    *m_pSocket = std::move(made);
    return true;
}

bool CLocalSocket::Wait(short nEvents, const CWaitLimit& limit) const
{
    if (!IsOpen())
        return FailWith({LIB_BAD_HANDLE, SYS_INVALID_HANDLE});
    if (!limit.HasTimeLeft()) // also when there is something: a busy peer must not outlast it
        return FailWith({LIB_TIMED_OUT, SYS_TIMEOUT});
    pollfd polled{m_pSocket->Get(), nEvents, 0};
    switch (PollWithin({&polled, 1}, limit)) {
    case EPollEnd::Ready:
        return true;
    case EPollEnd::Stopped:
        return FailWith({LIB_INTERRUPTED, SYS_OPERATION_ABORTED});
    case EPollEnd::TimedOut:
        return FailWith({LIB_TIMED_OUT, SYS_TIMEOUT});
    case EPollEnd::Failed:
        break;
    }
    return FailWithErrno();
}

int64_t CLocalSocket::Receive(void* pBuffer, size_t nCount, const CWaitLimit& limit)
{
    while (Wait(POLLIN, limit)) {
        const ssize_t nReceived =
            GuardedCall({EFault::LocalSocket}, [&] { return recv(m_pSocket->Get(), pBuffer, nCount, 0); });
        if (nReceived >= 0)
            return nReceived;
        if (!MayGoOn()) {
            FailWithErrno();
            break;
        }
    }
    return -1;
}

bool CLocalSocket::Send(std::string_view data, const CWaitLimit& limit)
{
    while (!data.empty()) {
        if (!Wait(POLLOUT, limit))
            return false;
        const ssize_t nSent = GuardedCall(
            {EFault::LocalSocket}, [&] { return send(m_pSocket->Get(), data.data(), data.size(), MSG_NOSIGNAL); });
        if (nSent < 0 && !MayGoOn())
            return FailWithErrno();
        data.remove_prefix(static_cast<size_t>(std::max<ssize_t>(nSent, 0)));
    }
    return true;
}

bool CLocalSocket::ShutdownSending()
{
    if (!IsOpen())
        return FailWith({LIB_BAD_HANDLE, SYS_INVALID_HANDLE});
    return Succeeded(GuardedCall({EFault::LocalSocket}, [&] { return shutdown(m_pSocket->Get(), SHUT_WR); }));
}

bool CLocalSocket::Peer(SLocalPeer& peer) const
{
    if (!IsOpen())
        return FailWith({LIB_BAD_HANDLE, SYS_INVALID_HANDLE});
    ucred credentials{};
    socklen_t nLength = sizeof credentials;
    if (!Succeeded(GuardedCall({EFault::LocalSocket}, [&] {
            return getsockopt(m_pSocket->Get(), SOL_SOCKET, SO_PEERCRED, &credentials, &nLength);
        })))
        return false;
    peer = {credentials.uid, credentials.gid, credentials.pid};
    return true;
}

} // namespace Platform
