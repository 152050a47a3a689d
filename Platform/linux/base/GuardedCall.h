#pragma once

#include "Platform/CCallWatcher.h"

#include <atomic>
#include <type_traits>
#include <unistd.h>

namespace Platform {

extern std::atomic<bool> g_bCallsHooked; ///< by a fault or a watcher

bool ShallFail(EFault fault); ///< errno is then set
void TellWatcher(const SCall& call);

/// Makes a system call that answers -1 or null for failure, unless a test wants it to fail.
template <class TMake>
auto GuardedCall(SCall call, TMake Make) -> decltype(Make())
{
    if (!g_bCallsHooked.load(std::memory_order_relaxed))
        return Make();
    using TResult = decltype(Make());
    if (ShallFail(call.kind)) {
        if constexpr (std::is_pointer_v<TResult>)
            return nullptr;
        else
            return -1;
    }
    const TResult result = Make();
    if constexpr (!std::is_pointer_v<TResult>) {
        if (result < 0)
            return result;
        if (call.kind == EFault::Open)
            call.iDescriptor = static_cast<int>(result);
        if (call.kind == EFault::Write)
            call.nBytes = static_cast<size_t>(result);
        TellWatcher(call);
    }
    return result;
}

/// The descriptor is gone even when this fails.
inline int GuardedClose(int iDescriptor)
{
    const int iResult = close(iDescriptor);
    return GuardedCall({EFault::Close}, [iResult] { return iResult; });
}

} // namespace Platform
