#include "Platform/FileIdentity.h"

#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/file/IdentityFrom.h"

namespace Platform {

bool IdentityOf(const char* pszPath, SFileIdentity& identity)
{
    struct stat status
    {};
    if (!Succeeded(GuardedCall({EFault::Stat}, [&] { return lstat(pszPath, &status); })))
        return false;
    identity = IdentityFrom(status);
    return true;
}

} // namespace Platform
