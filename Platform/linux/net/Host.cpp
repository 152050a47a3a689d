#include "Platform/Host.h"

#include "Platform/linux/base/Result.h"
#include "Platform/linux/process/GroupMemory.h"

#include <algorithm>
#include <array>
#include <climits>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <unistd.h>

namespace Platform {

bool HostName(std::string& strName)
{
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (!Succeeded(gethostname(name.data(), name.size())))
        return false;
    strName = name.data();
    return true;
}

uint64_t MostMemory()
{
    uint64_t nMost = UINT64_MAX;
    uint64_t nSwap = UINT64_MAX;
    struct sysinfo machine
    {};
    if (sysinfo(&machine) == 0) {
        nMost = (uint64_t{machine.totalram} + machine.totalswap) * machine.mem_unit;
        nSwap = uint64_t{machine.totalswap} * machine.mem_unit;
    }
    nMost = std::min(nMost, MostGroupMemory(nSwap));
    for (const auto resource : {RLIMIT_AS, RLIMIT_DATA}) {
        rlimit limit{};
        if (getrlimit(resource, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
            nMost = std::min<uint64_t>(nMost, limit.rlim_cur);
    }
    return nMost;
}

void ReturnFreedMemory()
{
    constexpr int LARGE = 1 << 20; // set at all, it no longer grows with what is freed
    mallopt(M_MMAP_THRESHOLD, LARGE);
}

} // namespace Platform
