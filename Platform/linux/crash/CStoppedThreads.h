#pragma once

#include <cstdint>
#include <sys/procfs.h>
#include <sys/types.h>
#include <vector>

namespace Platform {

struct SStoppedThread
{
    pid_t iThread;
    elf_gregset_t general;
    elf_fpregset_t floating;
};

/// The threads of another process, all but one, stopped for as long as this lives.
///
/// Made and destroyed on one thread. The one left out may wait for this process and stay able to give up.
/// Threads that cannot be stopped, or not in time, go on and are not listed.
class CStoppedThreads
{
public:
    CStoppedThreads(pid_t iProcess, pid_t iLeftOut);
    ~CStoppedThreads();
    CStoppedThreads(const CStoppedThreads&) = delete;
    CStoppedThreads& operator=(const CStoppedThreads&) = delete;

    const std::vector<SStoppedThread>& Threads() const { return m_threads; }

private:
    bool SeizeNewOnes(pid_t iProcess, pid_t iLeftOut);
    bool WaitForStop(pid_t iThread) const;

    const uint64_t m_ui64Deadline;
    std::vector<pid_t> m_seized;
    std::vector<SStoppedThread> m_threads;
};

} // namespace Platform
