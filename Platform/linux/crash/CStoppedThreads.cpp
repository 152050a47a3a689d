#include "Platform/linux/crash/CStoppedThreads.h"

#include "Platform/CDirectoryListing.h"
#include "Platform/Clock.h"

#include <algorithm>
#include <cstdlib>
#include <elf.h>
#include <string>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/wait.h>

namespace Platform {

namespace {

constexpr uint64_t LONGEST_STOPPING = 3000; // milliseconds for all threads together
constexpr unsigned NAP = 1;                 // milliseconds between looks at a thread

template <class T>
bool ReadRegisterSet(pid_t iThread, int iSet, T& registers)
{
    iovec to{&registers, sizeof(registers)};
    return ptrace(PTRACE_GETREGSET, iThread, iSet, &to) == 0;
}

} // namespace

CStoppedThreads::CStoppedThreads(pid_t iProcess, pid_t iLeftOut) : m_ui64Deadline(TickCount() + LONGEST_STOPPING)
{
    // Until the last one that could make new ones stands still.
    for (size_t nStopped = 0; SeizeNewOnes(iProcess, iLeftOut);) {
        for (; nStopped < m_seized.size(); ++nStopped) {
            SStoppedThread thread{};
            thread.iThread = m_seized[nStopped];
            if (WaitForStop(thread.iThread) && ReadRegisterSet(thread.iThread, NT_PRSTATUS, thread.general) &&
                ReadRegisterSet(thread.iThread, NT_PRFPREG, thread.floating))
                m_threads.push_back(thread);
        }
    }
}

CStoppedThreads::~CStoppedThreads()
{
    for (const pid_t iThread : m_seized)
        ptrace(PTRACE_DETACH, iThread, nullptr, nullptr);
}

bool CStoppedThreads::SeizeNewOnes(pid_t iProcess, pid_t iLeftOut)
{
    CDirectoryListing listing;
    if (TickCount() >= m_ui64Deadline || !listing.Read(("/proc/" + std::to_string(iProcess) + "/task").c_str()))
        return false;
    bool bNewOnes = false;
    for (size_t i = 0; i < listing.Count(); ++i) {
        const auto iThread = static_cast<pid_t>(std::atol(listing.At(i).pszName));
        if (iThread == iLeftOut || std::find(m_seized.begin(), m_seized.end(), iThread) != m_seized.end())
            continue;
        if (ptrace(PTRACE_SEIZE, iThread, nullptr, nullptr) != 0)
            continue;
        ptrace(PTRACE_INTERRUPT, iThread, nullptr, nullptr);
        m_seized.push_back(iThread);
        bNewOnes = true;
    }
    return bNewOnes;
}

/// Whatever stops it will do: it is never going on to be itself again.
bool CStoppedThreads::WaitForStop(pid_t iThread) const
{
    for (;;) {
        int iStatus = 0;
        const pid_t iAnswer = waitpid(iThread, &iStatus, __WALL | WNOHANG);
        if (iAnswer != 0)
            return iAnswer == iThread && WIFSTOPPED(iStatus);
        if (TickCount() >= m_ui64Deadline)
            return false;
        SleepMillis(NAP);
    }
}

} // namespace Platform
