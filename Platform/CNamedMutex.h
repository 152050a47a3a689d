#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace Platform {

enum class ELockResult { Acquired, Abandoned, TimedOut, Failed };

/// A mutex that every thread and process of one user shares by its name, or those of all hosts that share a directory
/// on a file system whose locks reach all of them.
///
/// Recursive for the owning thread. When its owner, thread or process, dies the kernel lets go of it; the next one
/// gets it, told Abandoned where that can be known. Names cost nothing once unlocked and leave nothing behind;
/// other users cannot take or block them. Threads may share an object; it is destroyed when nobody uses it any more.
class CNamedMutex
{
public:
    /// Without a directory: of this machine. Hosts that are to meet give the same name.
    explicit CNamedMutex(std::string_view strName, std::string_view strDirectory = {});
    ~CNamedMutex(); ///< unlocks what this object still holds
    CNamedMutex(const CNamedMutex&) = delete;
    CNamedMutex& operator=(const CNamedMutex&) = delete;

    /// Platform::INFINITE waits without limit. Failed, at once: no place for named locks works now (LastError).
    ELockResult Lock(unsigned dwMillis);
    void Unlock(); ///< only by the thread that locked
    /// Of the directory, for all its mutexes; returns whether it did when that was last noted, by any thread, and at
    /// first true.
    bool NoteWhetherPlaceWorks(bool bWorks);
    /// Where the locks of this directory lie: a directory of this user alone, there once one of them was locked.
    static std::string PlaceBelow(std::string_view strDirectory);

private:
    struct SState;
    std::unique_ptr<SState> m_pState;
};

} // namespace Platform
