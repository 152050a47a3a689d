#include "Platform/linux/process/CReaper.h"

#include "Platform/CNativeThread.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/epoll.h>
#include <sys/wait.h>

namespace Platform {

namespace {

/// The reaper's thread takes no signals: they belong to whoever the program lets wait for them.
class CSignalBlock
{
public:
    CSignalBlock()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~CSignalBlock() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    CSignalBlock(const CSignalBlock&) = delete;
    CSignalBlock& operator=(const CSignalBlock&) = delete;

private:
    sigset_t m_before;
};

} // namespace

CReaper& CReaper::Instance()
{
    // Its thread goes on while the process takes its static objects down.
    union UImmortal {
        CReaper reaper;
        UImmortal() : reaper() {}
        ~UImmortal() {}
    };
    static UImmortal s_immortal;
    return s_immortal.reaper;
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
    const CSignalBlock block;
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
