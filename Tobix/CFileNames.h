#pragma once

#include "Bex/CSimpleString.h"
#include "Bex/CTime.h"

#include <cstdint>

/// Makes the names of the files that the local agent writes. Owned and used by the agent's thread.
///
/// Every name takes the next value of one counter, so that names made in the same second differ; it wraps silently.
class CFileNames
{
public:
    Bex::CSimpleString FilterCopy(); ///< local date and time down to the millisecond, counter
    /// Of a copy for one recipient: local date and time, thread id, counter.
    Bex::CSimpleString RecipientCopy(Bex::CTime time, unsigned dwThreadId);

private:
    uint32_t m_dwCounter = 0;
};
