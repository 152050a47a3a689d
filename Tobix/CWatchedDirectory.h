#pragma once

#include "Bex/CFileChangeMonitor.h"
#include "Bex/CSimpleString.h"
#include "Bex/CWatchRenewal.h"

#include <string_view>

/// A directory that an agent lists whenever something in it may have changed: at first, and after each notification.
///
/// A watch breaks when its directory goes away, and cannot be opened while the system has none left: it is tried again,
/// so that a file that comes meanwhile does not wait for a restart. Used by one thread.
class CWatchedDirectory
{
public:
    /// With an ending only files whose names end so count: that a mail's temporary file comes is no change.
    explicit CWatchedDirectory(const Bex::CSimpleString& strPath, std::string_view ending = {});
    static constexpr std::string_view MAIL_ENDING = ".eml";

    const Bex::CSimpleString& Path() const { return m_strPath; }
    bool MayHaveChanged();                  ///< since the last question, which takes the notification
    void AskAgain() { m_bAskAgain = true; } ///< the answer could not be used
    bool HasToBeAskedAgain() const { return m_bAskAgain; }
    const Platform::IWaitable& Waitable() const { return m_monitor.Waitable(); }

private:
    Bex::CSimpleString m_strPath;
    std::string_view m_ending;
    CFileChangeMonitor m_monitor;
    Bex::CWatchRenewal m_renewal;
    bool m_bAskAgain = true;
};
