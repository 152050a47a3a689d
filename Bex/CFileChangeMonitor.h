#pragma once

#include "Bex/CSimpleString.h"
#include "Platform/CDirectoryWatch.h"

#include <string_view>

/// One directory's change notification: says that something in it changed, not what.
///
/// Owned by the loop that watches the directory and used on that thread only. Asking consumes the notification and
/// arms the next one. A monitor that could not be opened, or whose notification broke, answers "no change" from then
/// on; the failure is logged once. What is watched: names that appear, change or go, and files written and closed.
class CFileChangeMonitor
{
public:
    CFileChangeMonitor() = default;
    ~CFileChangeMonitor(); ///< closes
    CFileChangeMonitor(const CFileChangeMonitor&) = delete;
    CFileChangeMonitor& operator=(const CFileChangeMonitor&) = delete;

    /// With an ending only names that end so count (without regard to case).
    void Open(const Bex::CSimpleString& strDirectory, std::string_view ending = {});
    bool HasChanged(); ///< since the last call; never blocks
    void Close();
    const Platform::IWaitable& Waitable() const { return m_watch; } ///< signalled while a change waits to be asked for

private:
    Platform::CDirectoryWatch m_watch;
};
