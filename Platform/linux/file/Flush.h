#pragma once

#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"

#include <fcntl.h>
#include <string>
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

/// That of the names in it.
inline bool FlushDirectory(const std::string& strDirectory)
{
    const CDescriptor directory(GuardedCall({EFault::Open, strDirectory.c_str()}, [&] {
        return open(strDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }));
    return directory.IsValid() ? FlushDescriptor(directory.Get()) : FailWithErrno();
}

} // namespace Platform
