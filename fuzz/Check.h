#pragma once

#include <cstdlib>

/// Tells the fuzzer that something that must hold does not.
inline void Check(bool bHolds)
{
    if (!bHolds)
        std::abort();
}
