#pragma once

#include "Bex/CSimpleString.h"
#include "Platform/FileIdentity.h"

#include <cstdint>

namespace Bex {

/// Tells when the watch of a directory has to be opened anew: another directory has taken its place under the path
/// (moved, mounted, linked there), or it broke or could not be opened. Used by the thread that asks the watch.
class CWatchRenewal
{
public:
    static constexpr unsigned PATIENCE_MILLIS = 30000;

    /// The watch has just been opened, or the attempt failed.
    void Begin(const CSimpleString& strPath);
    /// To be opened now; true counts as Begin. A watch that cannot be opened is due every PATIENCE_MILLIS, or when
    /// something else stands there. Never while nothing does.
    bool IsDue(bool bWorks);
    /// On a network file system, which tells nothing of what others do there, true every PATIENCE_MILLIS.
    bool HasToLook();
    bool IsOnNetwork() const { return m_bNetwork; }

private:
    bool Look(Platform::SFileIdentity& directory) const;

    CSimpleString m_strPath;
    Platform::SFileIdentity m_directory; ///< that was opened, or tried
    bool m_bWorked = false;
    bool m_bNetwork = false;
    uint64_t m_nTicks = 0; ///< of the last attempt or look
};

} // namespace Bex
