#include "Platform/CLocalListener.h"

#include "Platform/FileSystem.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/net/LocalAddress.h"

#include <poll.h>
#include <sys/stat.h>

namespace Platform {

namespace {

/// One connection that is lost before it is taken says nothing of the next.
bool IsPassing(int iErrno) { return iErrno == EAGAIN || iErrno == EINTR || iErrno == ECONNABORTED; }

} // namespace

bool CLocalListener::Listen(const char* pszPath, unsigned dwPermission, int iBacklog)
{
    Close();
    CDescriptor made(GuardedCall({EFault::LocalSocket},
                                 [] { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }));
    if (!made.IsValid())
        return FailWithErrno();
    *m_socket.m_pSocket = std::move(made);
    const bool bListens =
        Bind(pszPath) &&
        Succeeded(
            GuardedCall({EFault::LocalSocket}, [&] { return chmod(pszPath, static_cast<mode_t>(dwPermission)); })) &&
        Succeeded(GuardedCall({EFault::LocalSocket}, [&] { return listen(m_socket.m_pSocket->Get(), iBacklog); }));
    if (!bListens) {
        const SError error = LastError();
        Close();
        SetLastError(error);
    }
    return bListens;
}

bool CLocalListener::Bind(const char* pszPath)
{
    SLocalAddress address;
    if (!address.Set(pszPath))
        return false;
    const auto Try = [&] {
        return Succeeded(GuardedCall({EFault::LocalSocket},
                                     [&] { return bind(m_socket.m_pSocket->Get(), address.Get(), address.nLength); }));
    };
    if (!Try() && !(LastError().iLibError == LIB_EXISTS && MakeWay(pszPath) && Try()))
        return false;
    if (!IdentityOf(pszPath, m_file))
        return false;
    m_strPath = pszPath;
    return true;
}

/// Removes a socket that nobody listens on.
bool CLocalListener::MakeWay(const char* pszPath) const
{
    CLocalSocket probe;
    const bool bAnswered = probe.Connect(pszPath, CWaitLimit().For(0));
    if (!bAnswered && LastError().dwSysError == SYS_CONNECTION_REFUSED && KindOf(pszPath, false) == EPathKind::Other)
        return RemoveFile(pszPath);
    SetLastError({LIB_EXISTS, SYS_ALREADY_EXISTS});
    return false;
}

bool CLocalListener::Accept(CLocalSocket& accepted, const CWaitLimit& limit)
{
    accepted.Close();
    while (m_socket.Wait(POLLIN, limit)) {
        CDescriptor made(GuardedCall({EFault::LocalSocket}, [&] {
            return accept4(m_socket.m_pSocket->Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        }));
        if (made.IsValid()) {
            *accepted.m_pSocket = std::move(made);
            return true;
        }
        if (!IsPassing(errno))
            return FailWithErrno();
    }
    return false;
}

void CLocalListener::Close()
{
    SFileIdentity present;
    if (!m_strPath.empty() && IdentityOf(m_strPath.c_str(), present) && present.IsSameInode(m_file))
        RemoveFile(m_strPath.c_str());
    m_strPath.clear();
    m_socket.Close();
}

} // namespace Platform
