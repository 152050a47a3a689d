#pragma once

#include "Platform/Errors.h"

/// How the reading of a mail file ended.
enum class ELoadResult {
    Loaded,
    Busy,  ///< in use, not complete yet, or something was short: later it may be whole
    Broken ///< trying again is of no use
};

struct SLoadResult
{
    ELoadResult result = ELoadResult::Loaded;
    Platform::SError error{}; ///< why not; none when it is loaded, or too short for a mail

    explicit operator bool() const { return result == ELoadResult::Loaded; }

    static SLoadResult Failure(Platform::SError error)
    {
        return {Platform::IsBusy(error) ? ELoadResult::Busy : ELoadResult::Broken, error};
    }
    static SLoadResult InUse() { return Failure({Platform::LIB_ACCESS, Platform::SYS_SHARING_VIOLATION}); }
    static SLoadResult TooShort() { return {.result = ELoadResult::Busy}; }
};
