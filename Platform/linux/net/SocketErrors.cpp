#include "Platform/linux/net/SocketFailure.h"

#include <algorithm>
#include <iterator>
#include <netdb.h>

namespace Platform {

namespace {

struct SCodeCase
{
    int iNative;
    uint32_t dwError;
};

constexpr SCodeCase ERRNO_CASES[] = {
    {ENOMEM, SOCKET_NO_MEMORY},
    {EINTR, SOCKET_CANCELED},
    {EBADF, SOCKET_NOT_A_SOCKET},
    {EACCES, SOCKET_NO_ACCESS},
    {EPERM, SOCKET_NO_ACCESS}, // a packet filter's refusal
    {EFAULT, SOCKET_BAD_ADDRESS},
    {EINVAL, SOCKET_INVALID},
    {EMFILE, SOCKET_TOO_MANY_OPEN},
    {ENFILE, SOCKET_TOO_MANY_OPEN},
    {EAGAIN, SOCKET_WOULD_BLOCK},
    {EINPROGRESS, SOCKET_IN_PROGRESS},
    {EALREADY, SOCKET_ALREADY_DONE},
    {ENOTSOCK, SOCKET_NOT_A_SOCKET},
    {EDESTADDRREQ, SOCKET_NO_DESTINATION},
    {EMSGSIZE, SOCKET_MESSAGE_TOO_LONG},
    {EPROTOTYPE, SOCKET_WRONG_PROTOCOL},
    {ENOPROTOOPT, SOCKET_NO_SUCH_OPTION},
    {EPROTONOSUPPORT, SOCKET_NO_SUCH_PROTOCOL},
    {ESOCKTNOSUPPORT, SOCKET_NO_SUCH_TYPE},
    {EOPNOTSUPP, SOCKET_NOT_SUPPORTED},
    {EPFNOSUPPORT, SOCKET_NO_SUCH_PROTOCOL_FAMILY},
    {EAFNOSUPPORT, SOCKET_NO_SUCH_FAMILY},
    {EADDRINUSE, SOCKET_ADDRESS_IN_USE},
    {EADDRNOTAVAIL, SOCKET_NO_SUCH_ADDRESS},
    {ENETDOWN, SOCKET_NETWORK_DOWN},
    {ENONET, SOCKET_NETWORK_UNREACHABLE},
    {ENETUNREACH, SOCKET_NETWORK_UNREACHABLE},
    {ENETRESET, SOCKET_NETWORK_RESET},
    {ECONNABORTED, SOCKET_ABORTED},
    {ECONNRESET, SOCKET_RESET},
    {EPIPE, SOCKET_RESET}, // the peer's reset was told before
    {ENOBUFS, SOCKET_NO_BUFFERS},
    {EISCONN, SOCKET_CONNECTED},
    {ENOTCONN, SOCKET_NOT_CONNECTED},
    {ESHUTDOWN, SOCKET_SHUT_DOWN},
    {ETIMEDOUT, SOCKET_TIMED_OUT},
    {ECONNREFUSED, SOCKET_REFUSED},
    {EHOSTDOWN, SOCKET_HOST_DOWN},
    {EHOSTUNREACH, SOCKET_HOST_UNREACHABLE},
    {EPROTO, SOCKET_HOST_UNREACHABLE}, // an ICMP error that says no more
};

constexpr SCodeCase LOOKUP_CASES[] = {
    {EAI_NONAME, SOCKET_HOST_NOT_FOUND}, {EAI_NODATA, SOCKET_HOST_NOT_FOUND},   {EAI_ADDRFAMILY, SOCKET_HOST_NOT_FOUND},
    {EAI_AGAIN, SOCKET_TRY_AGAIN},       {EAI_FAIL, SOCKET_NO_RECOVERY},        {EAI_FAMILY, SOCKET_NO_SUCH_FAMILY},
    {EAI_SOCKTYPE, SOCKET_NO_SUCH_TYPE}, {EAI_SERVICE, SOCKET_NO_SUCH_SERVICE}, {EAI_MEMORY, SOCKET_NO_MEMORY},
    {EAI_BADFLAGS, SOCKET_INVALID},
};

template <size_t N>
uint32_t Find(const SCodeCase (&cases)[N], int iNative, uint32_t dwOther)
{
    const auto* pCase = std::find_if(std::begin(cases), std::end(cases),
                                     [iNative](const SCodeCase& candidate) { return candidate.iNative == iNative; });
    return pCase == std::end(cases) ? dwOther : pCase->dwError;
}

thread_local uint32_t t_dwLastSocketError = SOCKET_OK;

} // namespace

uint32_t LastSocketError() { return t_dwLastSocketError; }

void SetLastSocketError(uint32_t dwError) { t_dwLastSocketError = dwError; }

uint32_t SocketErrorFromErrno(int iErrno)
{
    return iErrno == 0 ? static_cast<uint32_t>(SOCKET_OK) : Find(ERRNO_CASES, iErrno, SOCKET_NETWORK_DOWN);
}

bool FailSocketWithErrno() { return FailSocket(SocketErrorFromErrno(errno)); }

bool FailLookup(int iResult)
{
    if (iResult == EAI_SYSTEM)
        return FailSocketWithErrno();
    return FailSocket(Find(LOOKUP_CASES, iResult, SOCKET_NO_RECOVERY));
}

} // namespace Platform
