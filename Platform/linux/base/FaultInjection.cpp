#include "Platform/FaultInjection.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <mutex>

namespace Platform {

namespace {

struct SPlannedFault
{
    unsigned nSkip = 0;
    unsigned nTimes = 0;
    int iErrno = 0;
};

std::atomic<bool> s_bAnyPlanned = false;
std::mutex s_mutex;
std::array<SPlannedFault, static_cast<size_t>(EFault::Count)> s_faults;

} // namespace

void InjectFault(EFault fault, unsigned nFromNow, int iErrno, unsigned nTimes)
{
    const std::lock_guard lock(s_mutex);
    s_faults[static_cast<size_t>(fault)] = {nFromNow > 0 ? nFromNow - 1 : 0, nTimes, iErrno};
    s_bAnyPlanned = true;
}

void ClearFaults()
{
    const std::lock_guard lock(s_mutex);
    s_bAnyPlanned = false;
    s_faults = {};
}

bool ShallFail(EFault fault)
{
    if (!s_bAnyPlanned.load(std::memory_order_relaxed))
        return false;
    const std::lock_guard lock(s_mutex);
    SPlannedFault& planned = s_faults[static_cast<size_t>(fault)];
    if (planned.nTimes == 0)
        return false;
    if (planned.nSkip > 0) {
        --planned.nSkip;
        return false;
    }
    --planned.nTimes;
    errno = planned.iErrno;
    return true;
}

} // namespace Platform
