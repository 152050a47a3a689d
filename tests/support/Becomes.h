#pragma once

#include "Platform/Clock.h"

/// Whether the condition comes to hold; only a failing test waits out the four minutes, and a slow machine some.
template <class TCondition>
bool Becomes(TCondition Condition)
{
    const uint64_t ui64End = Platform::TickCount() + 240'000;
    while (!Condition() && Platform::TickCount() < ui64End)
        Platform::SleepMillis(2);
    return Condition();
}
