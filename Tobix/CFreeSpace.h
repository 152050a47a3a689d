#pragma once

#include "Bex/CSimpleString.h"

#include <atomic>
#include <cstdint>
#include <vector>

/// Tells whether the volumes of some directories have as much free as is demanded. They are asked once a second at
/// most; what changes is told in one line of the main log. A volume that cannot be asked, or that counts nothing, has
/// enough. Owned and used by the local agent's thread.
class CFreeSpace
{
public:
    /// Nothing is ever asked when no percentage above 0 is demanded.
    CFreeSpace(int iLeastPercent, std::vector<Bex::CSimpleString> directories)
        : m_iLeastPercent(iLeastPercent), m_directories(std::move(directories))
    {}

    bool IsShort();
    bool WasShort() const { return m_bShort; } ///< when it was asked last; any thread

private:
    void Ask();

    const int m_iLeastPercent;
    const std::vector<Bex::CSimpleString> m_directories;
    uint64_t m_nNextTicks = 0; ///< when they are asked again
    bool m_bToldUnknown = false;
    std::atomic<bool> m_bShort = false;
};
