#include "Platform/linux/net/SocketErrors.h"

#include "Platform/CSocketHandle.h"

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

constexpr uint32_t SOCKET_FAILED = 10050; // what the network did is not told any nearer

constexpr SCodeCase ERRNO_CASES[] = {
    {ENOMEM, SOCKET_NO_MEMORY},
    {EINTR, SOCKET_CANCELED},
    {EBADF, SOCKET_NOT_A_SOCKET},
    {EACCES, 10013},
    {EPERM, 10013}, // a packet filter's refusal
    {EFAULT, 10014},
    {EINVAL, 10022},
    {EMFILE, 10024},
    {ENFILE, 10024},
    {EAGAIN, 10035},
    {EINPROGRESS, 10036},
    {EALREADY, 10037},
    {ENOTSOCK, SOCKET_NOT_A_SOCKET},
    {EDESTADDRREQ, 10039},
    {EMSGSIZE, 10040},
    {EPROTOTYPE, 10041},
    {ENOPROTOOPT, 10042},
    {EPROTONOSUPPORT, 10043},
    {ESOCKTNOSUPPORT, 10044},
    {EOPNOTSUPP, 10045},
    {EPFNOSUPPORT, 10046},
    {EAFNOSUPPORT, SOCKET_NO_SUCH_FAMILY},
    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},
    {ENONET, 10051},
    {ENETUNREACH, 10051},
    {ENETRESET, 10052},
    {ECONNABORTED, SOCKET_ABORTED},
    {ECONNRESET, 10054},
    {EPIPE, 10054}, // the peer's reset was told before
    {ENOBUFS, 10055},
    {EISCONN, 10056},
    {ENOTCONN, 10057},
    {ESHUTDOWN, 10058},
    {ETIMEDOUT, SOCKET_TIMED_OUT},
    {ECONNREFUSED, 10061},
    {EHOSTDOWN, 10064},
    {EHOSTUNREACH, 10065},
    {EPROTO, 10065}, // an ICMP error that says no more
};

constexpr SCodeCase LOOKUP_CASES[] = {
    {EAI_NONAME, SOCKET_HOST_NOT_FOUND},
    {EAI_NODATA, SOCKET_HOST_NOT_FOUND},
    {EAI_ADDRFAMILY, SOCKET_HOST_NOT_FOUND},
    {EAI_AGAIN, 11002},
    {EAI_FAIL, 11003},
    {EAI_FAMILY, SOCKET_NO_SUCH_FAMILY},
    {EAI_SOCKTYPE, 10044},
    {EAI_SERVICE, 10109},
    {EAI_MEMORY, SOCKET_NO_MEMORY},
    {EAI_BADFLAGS, 10022},
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
    return iErrno == 0 ? static_cast<uint32_t>(SOCKET_OK) : Find(ERRNO_CASES, iErrno, SOCKET_FAILED);
}

bool FailSocketWithErrno() { return FailSocket(SocketErrorFromErrno(errno)); }

bool FailLookup(int iResult)
{
    if (iResult == EAI_SYSTEM)
        return FailSocketWithErrno();
    return FailSocket(Find(LOOKUP_CASES, iResult, 11003));
}

} // namespace Platform
