#pragma once

#include <condition_variable>
#include <mutex>
#include <sys/types.h>
#include <vector>

namespace Platform {

/// Waits for the children that nobody else waits for, so that they do not stay behind as zombies. Touches no other
/// child of the process, and costs no descriptor for each: it looks at them once a second while there are any. One per
/// process, with one thread from the first child on; never destroyed.
class CReaper
{
public:
    static CReaper& Instance();

    void Adopt(pid_t iProcess); ///< any thread

private:
    void StartThread();
    void Sweep();
    static void Run(void* pReaper);

    std::mutex m_mutex; ///< over all that follows
    std::condition_variable m_adopted;
    std::vector<pid_t> m_children;
    bool m_bRuns = false;
};

} // namespace Platform
