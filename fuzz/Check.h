#pragma once

#include <cstdlib>

/// Tells the fuzzer that something that must hold does not.
template <class T>
void Check(const T& holds)
{
    if (!holds)
        std::abort();
}
