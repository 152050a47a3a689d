#include "Platform/linux/process/DescriptorLimit.h"

#include "Platform/Process.h"

#include <sys/resource.h>
#include <utility>

namespace Platform {

namespace {

rlim_t s_nBefore = 0; ///< 0: not raised

} // namespace

void RaiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max)
        return;
    const rlim_t nBefore = std::exchange(limit.rlim_cur, limit.rlim_max);
    if (setrlimit(RLIMIT_NOFILE, &limit) == 0)
        s_nBefore = nBefore;
}

void LowerDescriptorLimit(pid_t iChild)
{
    rlimit limit{};
    if (s_nBefore == 0 || prlimit(iChild, RLIMIT_NOFILE, nullptr, &limit) != 0)
        return;
    limit.rlim_cur = s_nBefore;
    prlimit(iChild, RLIMIT_NOFILE, &limit, nullptr);
}

} // namespace Platform
