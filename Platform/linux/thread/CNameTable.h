#pragma once

#include "Platform/CNamedMutex.h"
#include "Platform/linux/thread/CNameLockFile.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Platform {

/// The named mutexes that objects of this process stand for, by the place where they lie, and which thread of the
/// process has each.
///
/// A thread first gets the name within the process, first come, first served, and then the name's byte of the lock
/// file against the other processes. Names are told apart by a hash: two names that share one merely wait for each
/// other. One table per process, never destroyed; any thread may use it.
class CNameTable
{
public:
    struct SEntry;
    struct SPlace;

    static CNameTable& Instance();
    /// Stands for the calling thread, and is never used for another one. What it still owns at the thread's end is
    /// let go as abandoned.
    static uint64_t CurrentOwner();

    SEntry* Open(std::string_view strName, std::string_view strDirectory); ///< to be closed once
    void Close(SEntry* pEntry);
    ELockResult Acquire(SEntry& entry, uint64_t ui64Owner, unsigned dwMillis);
    bool IsOwner(const SEntry& entry, uint64_t ui64Owner);
    void Release(SEntry& entry, uint64_t ui64Owner);
    void Abandon(uint64_t ui64Owner);

private:
    struct SWaiter;
    enum class EEntered { First, Again, TimedOut };

    EEntered Enter(SEntry& entry, uint64_t ui64Owner, uint64_t ui64Deadline);
    SEntry* OwnedBy(uint64_t ui64Owner);
    static void LetGo(SEntry& entry, std::unique_lock<std::mutex>& lock);
    static void Forget(SEntry& entry);
    ELockResult LockByte(SEntry& entry, uint64_t ui64Deadline);
    std::shared_ptr<CNameLockFile> LockFile(SPlace& place, const CNameLockFile* pReplaced);
    void ForgetAfterFork();

    std::mutex m_mutex;
    std::map<std::string, SPlace, std::less<>> m_places; ///< by directory; empty: of this machine
};

struct CNameTable::SWaiter
{
    uint64_t ui64Owner;
    bool bItsTurn = false;
    std::condition_variable turn;
};

struct CNameTable::SEntry
{
    SEntry(SPlace& itsPlace, int64_t iItsByte) : place(itsPlace), iByte(iItsByte) {}

    SPlace& place;
    const int64_t iByte;
    unsigned nObjects = 0;
    uint64_t ui64Owner = 0;  ///< 0: nobody
    unsigned nDepth = 0;     ///< 0 while it is being let go
    bool bAbandoned = false; ///< its last owner ended without letting go
    std::list<SWaiter*> waiting;
    std::shared_ptr<CNameLockFile> pLockedIn;
};

/// Stays: a process knows few directories.
struct CNameTable::SPlace
{
    std::vector<std::string> bases; ///< the file lies below the first that works
    std::unordered_map<int64_t, SEntry> entries;
    std::shared_ptr<CNameLockFile> pFile;
    std::atomic<bool> bWorks = true; ///< as was last noted
};

} // namespace Platform
