#pragma once

#include "Platform/Errors.h"

enum class ESaveResult {
    Saved,
    Exists, ///< the name is taken: another one may be free
    Failed
};

/// How the writing of a mail file ended.
struct SSaveResult
{
    ESaveResult result = ESaveResult::Saved;
    Platform::SError error{}; ///< why not; none when it is saved

    explicit operator bool() const { return result == ESaveResult::Saved; }
};
