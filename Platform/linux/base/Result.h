#pragma once

#include "Platform/Errors.h"

#include <cerrno>

namespace Platform {

/// Puts the failure of the system call just made where the caller's caller asks for it. Always false.
inline bool FailWithErrno()
{
    SetLastError(ErrorFromErrno(errno));
    return false;
}

/// The result of a call that answers 0 for success.
inline bool Succeeded(int iResult) { return iResult == 0 || FailWithErrno(); }

} // namespace Platform
