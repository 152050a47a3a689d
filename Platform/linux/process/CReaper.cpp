#include "Platform/linux/process/CReaper.h"

#include "Platform/CImmortal.h"
#include "Platform/CNativeThread.h"
#include "Platform/linux/base/CSignalsBlocked.h"

#include <algorithm>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/wait.h>

namespace Platform {

CReaper& CReaper::Instance()
{
    static CImmortal<CReaper> s_reaper; // its thread goes on to the end
    return *s_reaper;
}

void CReaper::Adopt(pid_t iProcess, CDescriptor process)
{
    const std::lock_guard lock(m_mutex);
    Sweep();
    if (process.IsValid() && StartWatching() && Watch(process))
        process.Release(); // the thread closes it
    else
        m_unwatched.push_back(iProcess);
}

bool CReaper::StartWatching()
{
    if (m_poll.IsValid())
        return true;
    CDescriptor poll(epoll_create1(EPOLL_CLOEXEC));
    if (!poll.IsValid())
        return false;
    const CSignalsBlocked blocked; // they belong to whoever the program lets wait for them
    m_poll = std::move(poll);
    if (CNativeThread::Create(Run, this))
        return true;
    m_poll.Close();
    return false;
}

bool CReaper::Watch(const CDescriptor& process)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = process.Get();
    return epoll_ctl(m_poll.Get(), EPOLL_CTL_ADD, process.Get(), &event) == 0;
}

void CReaper::Sweep()
{
    std::erase_if(m_unwatched, [](pid_t iProcess) { return waitpid(iProcess, nullptr, WNOHANG) != 0; });
}

void CReaper::Run(void* pReaper)
{
    const int iPoll = static_cast<CReaper*>(pReaper)->m_poll.Get();
    for (;;) {
        epoll_event event{};
        if (epoll_wait(iPoll, &event, 1, -1) != 1)
            continue;
        const CDescriptor process(event.data.fd);
        siginfo_t ignored{};
        waitid(P_PIDFD, static_cast<id_t>(process.Get()), &ignored, WEXITED | WNOHANG);
    }
}

} // namespace Platform
