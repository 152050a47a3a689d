#pragma once

#include <cerrno>
#include <cstdint>

namespace Platform {

/// The socket layer's codes that this folder names itself; SocketErrors.cpp maps Linux's to the rest.
enum ESocketError : uint32_t {
    SOCKET_OK = 0,
    SOCKET_NO_MEMORY = 8,
    SOCKET_BAD_ARGUMENT = 87,
    SOCKET_CANCELED = 10004,
    SOCKET_NOT_A_SOCKET = 10038,
    SOCKET_NO_SUCH_FAMILY = 10047,
    SOCKET_ABORTED = 10053,
    SOCKET_TIMED_OUT = 10060,
    SOCKET_HOST_NOT_FOUND = 11001,
};

void SetLastSocketError(uint32_t dwError);

/// Both set LastSocketError for the operation that fails and are always false.
inline bool FailSocket(uint32_t dwError)
{
    SetLastSocketError(dwError);
    return false;
}
bool FailSocketWithErrno();
bool FailLookup(int iResult); ///< what getaddrinfo or getnameinfo answered

} // namespace Platform
