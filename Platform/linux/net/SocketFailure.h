#pragma once

#include "Platform/SocketErrors.h"

#include <cerrno>

namespace Platform {

uint32_t SocketErrorFromErrno(int iErrno);
void SetLastSocketError(uint32_t dwError);

/// These set LastSocketError for the operation that fails and are always false.
inline bool FailSocket(uint32_t dwError)
{
    SetLastSocketError(dwError);
    return false;
}
bool FailSocketWithErrno();
bool FailLookup(int iResult); ///< what getaddrinfo or getnameinfo answered

} // namespace Platform
