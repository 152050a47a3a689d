#include "Platform/CDirectoryClaim.h"

#include "Platform/Process.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"

#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Platform {

namespace {

/// From the kernel's list of locks: "1: FLOCK  ADVISORY  WRITE 1234 fd:01:5678 0 EOF".
int HolderOf(int iDescriptor)
{
    struct stat status
    {};
    if (fstat(iDescriptor, &status) != 0)
        return 0;
    const std::string strEnd = std::string(":").append(std::to_string(status.st_ino)).append(" ");
    std::ifstream locks("/proc/locks");
    for (std::string strLine; std::getline(locks, strLine);) {
        int iProcess = 0;
        if (strLine.find(strEnd) != std::string::npos &&
            std::sscanf(strLine.c_str(), "%*d: FLOCK %*s %*s %d", &iProcess) == 1 && iProcess > 0 &&
            iProcess != static_cast<int>(CurrentProcessId()))
            return iProcess;
    }
    return 0;
}

} // namespace

bool CDirectoryClaim::TakeShared(const char* pszDirectory) { return Take(pszDirectory, LOCK_SH); }

bool CDirectoryClaim::TakeExclusive(const char* pszDirectory) { return Take(pszDirectory, LOCK_EX); }

void CDirectoryClaim::Drop()
{
    if (m_iDescriptor >= 0)
        close(std::exchange(m_iDescriptor, -1)); // nothing was written through it
}

bool CDirectoryClaim::Take(const char* pszDirectory, int iOperation)
{
    Drop();
    m_iHolder = 0;
    CDescriptor directory(
        GuardedCall({EFault::Open}, [&] { return open(pszDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!directory.IsValid())
        return FailWithErrno();
    if (GuardedCall({EFault::Lock}, [&] { return flock(directory.Get(), iOperation | LOCK_NB); }) != 0) {
        const bool bFailed = FailWithErrno();
        m_iHolder = HolderOf(directory.Get());
        return bFailed;
    }
    m_iDescriptor = directory.Release();
    return true;
}

} // namespace Platform
