#include "Platform/linux/process/CReaper.h"

#include "Platform/CImmortal.h"
#include "Platform/CNativeThread.h"
#include "Platform/linux/base/CSignalsBlocked.h"

#include <chrono>
#include <sys/wait.h>

namespace Platform {

CReaper& CReaper::Instance()
{
    static CImmortal<CReaper> s_reaper; // its thread goes on to the end
    return *s_reaper;
}

void CReaper::Adopt(pid_t iProcess)
{
    const std::lock_guard lock(m_mutex);
    Sweep(); // also where no thread can be had
    m_children.push_back(iProcess);
    StartThread();
    m_adopted.notify_one();
}

void CReaper::StartThread()
{
    if (m_bRuns)
        return;
    const CSignalsBlocked blocked; // they belong to whoever the program lets wait for them
    m_bRuns = CNativeThread::Create(Run, this) != nullptr;
}

void CReaper::Sweep()
{
    std::erase_if(m_children, [](pid_t iProcess) { return waitpid(iProcess, nullptr, WNOHANG) != 0; });
}

void CReaper::Run(void* pReaper)
{
    CReaper& self = *static_cast<CReaper*>(pReaper);
    std::unique_lock lock(self.m_mutex);
    for (;;) {
        self.m_adopted.wait(lock, [&self] { return !self.m_children.empty(); });
        self.m_adopted.wait_for(lock, std::chrono::seconds(1));
        self.Sweep();
    }
}

} // namespace Platform
