#include "Platform/FileBeginning.h"

#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>

namespace Platform {

namespace {

constexpr int64_t NANOSECONDS = 1'000'000'000;

int64_t Nanoseconds(const statx_timestamp& time) { return time.tv_sec * NANOSECONDS + time.tv_nsec; }

bool Describe(int iDescriptor, SFileBeginning& beginning)
{
    struct statx status
    {};
    constexpr unsigned WANTED = STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_BTIME;
    const auto look = [&] { return statx(iDescriptor, "", AT_EMPTY_PATH, WANTED, &status); };
    if (GuardedCall({EFault::Stat}, look) != 0)
        return false;
    errno = EOPNOTSUPP;
    beginning.iSize = static_cast<int64_t>(status.stx_size);
    beginning.iModified = Nanoseconds(status.stx_mtime);
    beginning.iCreated = (status.stx_mask & STATX_BTIME) != 0 ? Nanoseconds(status.stx_btime) : beginning.iModified;
    return S_ISREG(status.stx_mode);
}

bool ReadInto(int iDescriptor, std::string& strBytes)
{
    size_t nDone = 0;
    while (nDone < strBytes.size()) {
        const auto piece = [&] { return read(iDescriptor, strBytes.data() + nDone, strBytes.size() - nDone); };
        const ssize_t iRead = GuardedCall({EFault::Read}, piece);
        if (iRead < 0 && errno == EINTR)
            continue;
        if (iRead < 0)
            return false;
        if (iRead == 0)
            break;
        nDone += static_cast<size_t>(iRead);
    }
    strBytes.resize(nDone);
    return true;
}

} // namespace

bool ReadBeginning(const char* pszPath, size_t nMost, SFileBeginning& beginning)
{
    constexpr int FLAGS = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;
    const CDescriptor file(GuardedCall({EFault::Open, pszPath}, [&] { return open(pszPath, FLAGS); }));
    if (!file.IsValid() || !Describe(file.Get(), beginning))
        return FailWithErrno();
    beginning.strBytes.resize(std::min(nMost, static_cast<size_t>(beginning.iSize)));
    return ReadInto(file.Get(), beginning.strBytes) || FailWithErrno();
}

} // namespace Platform
