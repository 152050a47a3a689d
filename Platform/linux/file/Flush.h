#pragma once

#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"

#include <unistd.h>

namespace Platform {

/// Brings an open file or directory to stable storage.
inline bool FlushDescriptor(int iDescriptor)
{
    int iResult = -1;
    do
        iResult = GuardedCall({.kind = EFault::Flush, .iDescriptor = iDescriptor}, [&] { return fsync(iDescriptor); });
    while (iResult != 0 && errno == EINTR);
    return Succeeded(iResult);
}

} // namespace Platform
