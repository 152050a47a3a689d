#include "Platform/CInjectedFault.h"

#include "Platform/CCallWatcher.h"
#include "Platform/linux/base/GuardedCall.h"

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <vector>

namespace Platform {

std::atomic<bool> g_bCallsHooked = false;

namespace {

std::mutex s_mutex;
std::vector<CInjectedFault*> s_faults;
CCallWatcher* s_pWatcher = nullptr;

void UpdateHook() { g_bCallsHooked = !s_faults.empty() || s_pWatcher != nullptr; }

} // namespace

CInjectedFault::CInjectedFault(EFault fault, unsigned nFromNow, int iErrno, unsigned nTimes)
    : m_fault(fault), m_nSkip(nFromNow - 1), m_nTimes(nTimes), m_iErrno(iErrno)
{
    const std::lock_guard lock(s_mutex);
    s_faults.push_back(this);
    UpdateHook();
}

CInjectedFault::~CInjectedFault()
{
    const std::lock_guard lock(s_mutex);
    std::erase(s_faults, this);
    UpdateHook();
}

bool CInjectedFault::Strikes(EFault fault)
{
    if (fault != m_fault || m_nTimes == 0)
        return false;
    if (m_nSkip > 0) {
        --m_nSkip;
        return false;
    }
    --m_nTimes;
    errno = m_iErrno;
    return true;
}

CCallWatcher::CCallWatcher()
{
    const std::lock_guard lock(s_mutex);
    s_pWatcher = this;
    UpdateHook();
}

CCallWatcher::~CCallWatcher()
{
    const std::lock_guard lock(s_mutex);
    s_pWatcher = nullptr;
    UpdateHook();
}

bool ShallFail(EFault fault)
{
    const std::lock_guard lock(s_mutex);
    bool bFails = false;
    for (CInjectedFault* pFault : s_faults)
        bFails = pFault->Strikes(fault) || bFails;
    return bFails;
}

void TellWatcher(const SCall& call)
{
    const std::lock_guard lock(s_mutex);
    if (s_pWatcher != nullptr)
        s_pWatcher->OnCall(call);
}

} // namespace Platform
