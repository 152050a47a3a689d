#pragma once

#include <algorithm>
#include <cstdint>

/// When something that failed is tried again: after a second, then after longer and longer pauses. Times are ticks
/// (Platform::TickCount). Used by one thread.
class CGrowingPause
{
public:
    static constexpr uint64_t FIRST_MILLIS = 1000;
    static constexpr uint64_t LONGEST_MILLIS = 30'000;

    bool IsPending() const { return m_nMillis > 0; } ///< the last try failed
    bool IsDue(uint64_t nTicks) const { return IsPending() && nTicks >= m_nNextTicks; }
    void Tried(bool bDone, uint64_t nTicks)
    {
        m_nMillis = bDone ? 0 : std::clamp(2 * m_nMillis, FIRST_MILLIS, LONGEST_MILLIS);
        m_nNextTicks = nTicks + m_nMillis;
    }

private:
    uint64_t m_nMillis = 0;
    uint64_t m_nNextTicks = 0;
};
