#include "Platform/FileIdentity.h"

#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"

#include <sys/stat.h>

namespace Platform {

bool IdentityOf(const char* pszPath, SFileIdentity& identity)
{
    struct stat status
    {};
    if (!Succeeded(GuardedCall({EFault::Stat}, [&] { return lstat(pszPath, &status); })))
        return false;
    identity.nDevice = status.st_dev;
    identity.nNumber = status.st_ino;
    identity.iSize = status.st_size;
    identity.iModified = status.st_mtim.tv_sec * int64_t{1'000'000'000} + status.st_mtim.tv_nsec;
    return true;
}

} // namespace Platform
