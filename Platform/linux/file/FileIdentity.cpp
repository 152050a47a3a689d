#include "Platform/FileIdentity.h"

#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/file/IdentityFrom.h"

namespace Platform {

bool IdentityOf(const char* pszPath, SFileIdentity& identity, ELinks links)
{
    struct stat status
    {};
    if (!Succeeded(GuardedCall({EFault::Stat}, [&] {
            return links == ELinks::Follow ? stat(pszPath, &status) : lstat(pszPath, &status);
        })))
        return false;
    identity = IdentityFrom(status);
    return true;
}

} // namespace Platform
