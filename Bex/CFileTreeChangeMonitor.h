#pragma once

#include "Bex/CCriticalSection.h"
#include "Bex/CSimpleString.h"
#include "Platform/CTreeWatch.h"

#include <string_view>

namespace Bex {

/// A directory tree's change notification: tells each change, with its action and name, to overridable handlers.
///
/// Polled by one thread at a time; the handlers run on it, inside HasChanged. Names are relative to the watched
/// directory. Two changes of one file in a row are told once.
class CFileTreeChangeMonitor
{
public:
    CFileTreeChangeMonitor() = default;
    virtual ~CFileTreeChangeMonitor(); ///< closes
    CFileTreeChangeMonitor(const CFileTreeChangeMonitor&) = delete;
    CFileTreeChangeMonitor& operator=(const CFileTreeChangeMonitor&) = delete;

    virtual void OnAdded(const CSimpleString& strName);
    virtual void OnRemoved(const CSimpleString& strName);
    virtual void OnModified(const CSimpleString& strName);
    virtual void OnRenamed(const CSimpleString& strOldName, const CSimpleString& strNewName);
    virtual void OnUnknownAction(const CSimpleString& strName, unsigned dwAction);
    /// One record; pNext is the one behind it in the batch or null. True when the record counts as a change.
    virtual bool OnRecord(const Platform::STreeRecord& record, const Platform::STreeRecord* pNext);

    /// Starts watching; failures are logged and leave the monitor without reports. The filter, when given, is asked
    /// on another thread which relative names are worth keeping. Nothing is reported from below directories of the
    /// name that is left out.
    void Create(const CSimpleString& strDirectory, Platform::CTreeWatch::Filter filter = nullptr,
                std::string_view leftOut = {});
    bool HasChanged(); ///< true when at least one record counted since the last call; never blocks
    void Destroy();
    /// False, too, once the directory was moved away, removed or unmounted.
    bool IsCreated() const { return m_watch.IsOpen(); }
    const Platform::IWaitable& Waitable() const { return m_watch; }

private:
    CCriticalSection m_lock;
    Platform::CTreeWatch m_watch;
    CSimpleString m_strPendingOldName; ///< of a rename, until its new name arrives
};

} // namespace Bex
