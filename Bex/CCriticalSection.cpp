#include "Bex/CCriticalSection.h"

#include "Platform/Clock.h"

namespace Bex {

bool CCriticalSection::Lock(unsigned dwMillis)
{
    const unsigned dwStep = dwMillis <= 20 ? 1 : dwMillis / 10;
    const uint64_t ui64Start = Platform::TickCount();
    while (!m_mutex.try_lock()) {
        Platform::SleepMillis(dwStep);
        if (Platform::TickCount() - ui64Start >= dwMillis)
            return false;
    }
    return true;
}

bool CCriticalSection::Lock()
{
    m_mutex.lock();
    return true;
}

bool CCriticalSection::Unlock()
{
    m_mutex.unlock();
    return true;
}

} // namespace Bex
