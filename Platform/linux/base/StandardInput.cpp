#include "Platform/StandardInput.h"

#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"

#include <unistd.h>

namespace Platform {

int64_t ReadStandardInput(void* pBuffer, size_t nCount)
{
    ssize_t iRead = -1;
    do
        iRead = GuardedCall({EFault::Read}, [&] { return read(STDIN_FILENO, pBuffer, nCount); });
    while (iRead < 0 && errno == EINTR);
    if (iRead < 0)
        FailWithErrno();
    return iRead;
}

} // namespace Platform
