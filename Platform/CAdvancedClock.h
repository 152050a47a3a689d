#pragma once

#include <cstdint>

/// Lets tests let time pass that nobody has to wait for: while it lives, TickCount is ahead by as much as it was told,
/// and so is everything that asks it, such as CWaitLimit. Waits that have begun go on. Process-wide, any thread; costs
/// one relaxed load a call when unused.
namespace Platform {

class CAdvancedClock
{
public:
    CAdvancedClock() = default;
    ~CAdvancedClock();
    CAdvancedClock(const CAdvancedClock&) = delete;
    CAdvancedClock& operator=(const CAdvancedClock&) = delete;

    void Advance(uint64_t ui64Millis);
};

} // namespace Platform
