#pragma once

#include "Platform/linux/base/CDescriptor.h"

#include <mutex>
#include <sys/types.h>
#include <vector>

namespace Platform {

/// Waits for the children that nobody else waits for, so that they do not stay behind as zombies. Touches no other
/// child of the process. One per process, with one thread from the first child on; never destroyed.
class CReaper
{
public:
    static CReaper& Instance();

    /// Takes a child over. Without a descriptor for it, or without a thread, it is looked at whenever another comes.
    void Adopt(pid_t iProcess, CDescriptor process);

private:
    bool StartWatching();
    bool Watch(const CDescriptor& process);
    void Sweep();
    static void Run(void* pReaper);

    std::mutex m_mutex;
    CDescriptor m_poll; ///< epoll of the adopted; valid once the thread runs
    std::vector<pid_t> m_unwatched;
};

} // namespace Platform
