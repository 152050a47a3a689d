#include "Platform/linux/thread/CNameTable.h"

#include "Platform/CEventHandle.h"
#include "Platform/CImmortal.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <pthread.h>
#include <utility>

namespace Platform {

namespace {

constexpr uint64_t NO_DEADLINE = UINT64_MAX;
constexpr uint64_t LONGEST_NAP = 50; // milliseconds between looks at a name that another process has
constexpr unsigned MOST_FILES = 8;   // that are replaced under one look

/// 62 bits of FNV-1a: a file offset.
int64_t ByteOfName(std::string_view strName)
{
    uint64_t ui64Hash = 0xCBF29CE484222325u;
    for (const char ch : strName)
        ui64Hash = (ui64Hash ^ static_cast<unsigned char>(ch)) * 0x100000001B3u;
    return static_cast<int64_t>(ui64Hash >> 2);
}

struct SThreadsOwner
{
    ~SThreadsOwner()
    {
        if (ui64Id != 0)
            CNameTable::Instance().Abandon(ui64Id);
    }
    uint64_t ui64Id = 0;
};

std::atomic<uint64_t> s_ui64LastOwner = 0;
thread_local SThreadsOwner t_owner;

} // namespace

CNameTable& CNameTable::Instance()
{
    // Threads may still end, and abandon, while the process takes its static objects down.
    static CImmortal<CNameTable> s_table;
    [[maybe_unused]] static const int s_iForkHandlers =
        pthread_atfork([] { s_table->m_mutex.lock(); }, [] { s_table->m_mutex.unlock(); },
                       [] {
                           s_table->ForgetAfterFork();
                           s_table->m_mutex.unlock();
                       });
    return *s_table;
}

uint64_t CNameTable::CurrentOwner()
{
    if (t_owner.ui64Id == 0)
        t_owner.ui64Id = ++s_ui64LastOwner;
    return t_owner.ui64Id;
}

CNameTable::SEntry* CNameTable::Open(std::string_view strName, std::string_view strDirectory)
{
    const int64_t iByte = ByteOfName(strName);
    const std::lock_guard lock(m_mutex);
    auto place = m_places.find(strDirectory);
    if (place == m_places.end()) {
        std::vector<std::string> bases{"/run/tobix", "/run/lock", "/tmp"};
        if (!strDirectory.empty())
            bases = {std::string(strDirectory)};
        place = m_places.try_emplace(std::string(strDirectory)).first;
        place->second.bases = std::move(bases);
    }
    SEntry& entry = place->second.entries.try_emplace(iByte, place->second, iByte).first->second;
    ++entry.nObjects;
    return &entry;
}

void CNameTable::Close(SEntry* pEntry)
{
    const std::lock_guard lock(m_mutex);
    Forget(*pEntry);
}

/// By one of those that know it. Needs the table's mutex.
void CNameTable::Forget(SEntry& entry)
{
    if (--entry.nObjects == 0)
        entry.place.entries.erase(entry.iByte);
}

ELockResult CNameTable::Acquire(SEntry& entry, uint64_t ui64Owner, unsigned dwMillis)
{
    const uint64_t ui64Deadline = dwMillis == INFINITE ? NO_DEADLINE : TickCount() + dwMillis;
    switch (Enter(entry, ui64Owner, ui64Deadline)) {
    case EEntered::Again:
        return ELockResult::Acquired;
    case EEntered::TimedOut:
        SetLastError({LIB_TIMED_OUT, SYS_TIMEOUT});
        return ELockResult::TimedOut;
    case EEntered::First:
        break;
    }
    const ELockResult result = LockByte(entry, ui64Deadline);
    if (result == ELockResult::TimedOut)
        SetLastError({LIB_TIMED_OUT, SYS_TIMEOUT});
    if (result == ELockResult::TimedOut || result == ELockResult::Failed)
        Release(entry, ui64Owner);
    return result;
}

bool CNameTable::IsOwner(const SEntry& entry, uint64_t ui64Owner)
{
    const std::lock_guard lock(m_mutex);
    return ui64Owner != 0 && entry.ui64Owner == ui64Owner;
}

void CNameTable::Release(SEntry& entry, uint64_t ui64Owner)
{
    std::unique_lock lock(m_mutex);
    if (entry.ui64Owner == ui64Owner && entry.nDepth > 0 && --entry.nDepth == 0)
        LetGo(entry, lock);
}

void CNameTable::Abandon(uint64_t ui64Owner)
{
    std::unique_lock lock(m_mutex);
    while (SEntry* const pEntry = OwnedBy(ui64Owner)) { // one by one, as the table is free meanwhile
        ++pEntry->nObjects;                             // whoever knows it may close it
        pEntry->nDepth = 0;                             // or release it
        pEntry->bAbandoned = true;
        LetGo(*pEntry, lock);
        Forget(*pEntry);
    }
}

/// One that is still to be let go. Needs the table's mutex.
CNameTable::SEntry* CNameTable::OwnedBy(uint64_t ui64Owner)
{
    for (auto& [strDirectory, place] : m_places) {
        for (auto& [iByte, entry] : place.entries) {
            if (entry.ui64Owner == ui64Owner && entry.nDepth > 0)
                return &entry;
        }
    }
    return nullptr;
}

CNameTable::EEntered CNameTable::Enter(SEntry& entry, uint64_t ui64Owner, uint64_t ui64Deadline)
{
    std::unique_lock lock(m_mutex);
    if (entry.ui64Owner == ui64Owner) {
        ++entry.nDepth;
        return EEntered::Again;
    }
    if (entry.ui64Owner == 0) {
        entry.ui64Owner = ui64Owner;
        entry.nDepth = 1;
        return EEntered::First;
    }
    SWaiter waiter{.ui64Owner = ui64Owner, .bItsTurn = false, .turn = {}};
    const auto place = entry.waiting.insert(entry.waiting.end(), &waiter);
    const auto itsTurn = [&waiter] { return waiter.bItsTurn; };
    if (ui64Deadline == NO_DEADLINE) {
        waiter.turn.wait(lock, itsTurn);
    } else {
        const uint64_t ui64Now = TickCount();
        const std::chrono::milliseconds left(ui64Deadline > ui64Now ? ui64Deadline - ui64Now : 0);
        if (!waiter.turn.wait_for(lock, left, itsTurn)) {
            entry.waiting.erase(place);
            return EEntered::TimedOut;
        }
    }
    return EEntered::First;
}

/// Lets the other processes have the name, then the thread that has waited longest. The table is free meanwhile, as for
/// every call that a hanging file system could hold up: the other names must not wait for it.
void CNameTable::LetGo(SEntry& entry, std::unique_lock<std::mutex>& lock)
{
    // Before another thread may lock it: the kernel does not tell our threads apart.
    if (auto pFile = std::exchange(entry.pLockedIn, nullptr)) {
        lock.unlock();
        pFile->Unlock(entry.iByte);
        pFile.reset();
        lock.lock();
    }
    if (entry.waiting.empty()) {
        entry.ui64Owner = 0;
        return;
    }
    SWaiter& next = *entry.waiting.front();
    entry.waiting.pop_front();
    entry.ui64Owner = next.ui64Owner;
    entry.nDepth = 1;
    next.bItsTurn = true;
    next.turn.notify_one();
}

/// Takes the name from the other processes, looking again and again while one of them has it.
ELockResult CNameTable::LockByte(SEntry& entry, uint64_t ui64Deadline)
{
    std::shared_ptr<CNameLockFile> pFile = LockFile(entry.place, nullptr);
    unsigned nFiles = 0;
    for (uint64_t ui64Nap = 1; pFile;) {
        const CNameLockFile::EResult result = pFile->TryLock(entry.iByte);
        if (result == CNameLockFile::EResult::Locked) {
            const std::lock_guard lock(m_mutex);
            entry.pLockedIn = std::move(pFile);
            return std::exchange(entry.bAbandoned, false) ? ELockResult::Abandoned : ELockResult::Acquired;
        }
        if (result == CNameLockFile::EResult::Failed)
            return ELockResult::Failed;
        if (result == CNameLockFile::EResult::Replaced) {
            if (++nFiles == MOST_FILES) {
                SetLastError({LIB_ACCESS, SYS_SHARING_VIOLATION});
                break;
            }
            pFile = LockFile(entry.place, pFile.get());
            continue;
        }
        const uint64_t ui64Now = TickCount();
        if (ui64Now >= ui64Deadline)
            return ELockResult::TimedOut;
        nFiles = 0;
        SleepMillis(static_cast<unsigned>(std::min(ui64Nap, ui64Deadline - ui64Now)));
        ui64Nap = std::min(ui64Nap * 2, LONGEST_NAP);
    }
    return ELockResult::Failed;
}

/// The file that is in use now, opened when there is none or when it is the replaced one.
std::shared_ptr<CNameLockFile> CNameTable::LockFile(SPlace& place, const CNameLockFile* pReplaced)
{
    const auto InUse = [&] { return place.pFile && place.pFile.get() != pReplaced; };
    std::unique_lock lock(m_mutex);
    if (InUse())
        return place.pFile;
    lock.unlock();
    std::shared_ptr<CNameLockFile> pFile = CNameLockFile::Open(place.bases);
    lock.lock();
    if (!InUse()) // no other thread was faster
        place.pFile.swap(pFile);
    std::shared_ptr<CNameLockFile> pUsed = place.pFile;
    lock.unlock(); // before the other one is closed
    return pUsed;
}

/// In the child of a fork: everything that is held is held by the parent's threads. Closing the copies of the
/// descriptors leaves the parent its locks.
void CNameTable::ForgetAfterFork()
{
    for (auto& [strDirectory, place] : m_places) {
        place.pFile.reset();
        for (auto& [iByte, entry] : place.entries) {
            entry.ui64Owner = 0;
            entry.nDepth = 0;
            entry.bAbandoned = false;
            entry.waiting.clear();
            entry.pLockedIn.reset();
        }
    }
}

} // namespace Platform
