#include "Tobix/COutgoingFiles.h"

#include "Platform/Clock.h"

bool COutgoingFiles::AddPending(std::string_view name)
{
    const Bex::CScopedLock lock(m_lock);
    if (m_index.contains(name))
        return false;
    const CEntries::iterator entry = Add(name, PENDING);
    if (const auto announced = m_announced.find(std::string(name)); announced != m_announced.end()) {
        SetDomain(*entry, announced->second.strDomain);
        SetRoute(*entry, announced->second.strRoute);
        entry->strOrigin = std::move(announced->second.strOrigin);
        m_announced.erase(announced);
    }
    Queue(entry, PENDING);
    TellWork();
    return true;
}

bool COutgoingFiles::Contains(std::string_view name) const
{
    const Bex::CScopedLock lock(m_lock);
    return m_index.contains(name);
}

bool COutgoingFiles::Take(Bex::CSimpleString& strName)
{
    const Bex::CScopedLock lock(m_lock);
    CEntries::iterator entry;
    while (Next(entry)) {
        if (!StartUnlessFull(entry))
            continue;
        strName = entry->strName;
        TellWork();
        return true;
    }
    TellWork();
    return false;
}

void COutgoingFiles::RetryLater(std::string_view name)
{
    const Bex::CScopedLock lock(m_lock);
    if (const auto found = m_index.find(name); found != m_index.end()) {
        Leave(*found->second);
        Move(found->second, RETRY_WAIT);
        ++found->second->nAttempts;
    } else {
        Add(name, RETRY_WAIT);
    }
    TellWork();
}

bool COutgoingFiles::FindInProgress(std::string_view name, CEntries::iterator& entry)
{
    const auto found = m_index.find(name);
    if (found == m_index.end() || found->second->list != IN_PROGRESS)
        return false;
    entry = found->second;
    return true;
}

void COutgoingFiles::FinishDelivery(std::string_view name)
{
    const Bex::CScopedLock lock(m_lock);
    CEntries::iterator entry;
    if (!FindInProgress(name, entry))
        return;
    TakeUp(*entry);
    LeaveForGood(*entry);
    m_index.erase(name); // before the name it points to
    m_lists[IN_PROGRESS].erase(entry);
    TellWork();
}

void COutgoingFiles::SetAside(std::string_view name, EAside why)
{
    const Bex::CScopedLock lock(m_lock);
    if (CEntries::iterator entry; FindInProgress(name, entry)) {
        LeaveForGood(*entry);
        PutAside(*entry, why);
    }
    TellWork();
}

COutgoingFiles::SCounts COutgoingFiles::Counts() const
{
    const Bex::CScopedLock lock(m_lock);
    return {.nAll = m_index.size(),
            .nSending = m_lists[IN_PROGRESS].size() - m_nSetAside,
            .nWaiting = m_lists[RETRY_WAIT].size()};
}

void COutgoingFiles::ReleaseRetries()
{
    const Bex::CScopedLock lock(m_lock);
    while (!m_lists[RETRY_WAIT].empty())
        Queue(m_lists[RETRY_WAIT].begin(), RETRY_DUE);
    TellWork();
}

bool COutgoingFiles::HasPending() const
{
    const Bex::CScopedLock lock(m_lock);
    return !m_lists[PENDING].empty() || m_nPendingHeldBack > 0;
}

std::string COutgoingFiles::OriginOf(std::string_view name) const
{
    const Bex::CScopedLock lock(m_lock);
    const auto found = m_index.find(name);
    return found == m_index.end() ? std::string() : found->second->strOrigin;
}

int64_t COutgoingFiles::SecondsKnown(std::string_view name) const
{
    const Bex::CScopedLock lock(m_lock);
    const auto found = m_index.find(name);
    const uint64_t nNow = Platform::TickCount();
    return static_cast<int64_t>(found == m_index.end() ? 0 : (nNow - found->second->nSinceTicks) / 1000);
}

COutgoingFiles::CEntries::iterator COutgoingFiles::Add(std::string_view name, EList list)
{
    CEntries made; // listed when nothing can fail any more
    made.push_back({.strName = Bex::CSimpleString(name), .list = list, .nSinceTicks = Platform::TickCount()});
    const CEntries::iterator entry = made.begin();
    m_index.emplace(entry->strName.View(), entry);
    m_lists[list].splice(m_lists[list].end(), made);
    return entry;
}

/// To the end of the list.
void COutgoingFiles::Move(CEntries::iterator entry, EList list)
{
    Unlist(*entry);
    m_lists[list].splice(m_lists[list].end(), m_lists[entry->list], entry);
    entry->list = list;
}

void COutgoingFiles::Queue(CEntries::iterator entry, EList list)
{
    Move(entry, list);
    entry->turn = {list, ++m_nTurns};
    Enlist(entry);
}

void COutgoingFiles::TellWork()
{
    const bool bWork = !m_lists[PENDING].empty() || !m_lists[RETRY_DUE].empty() || !m_ready.empty();
    if (bWork == m_bWork)
        return;
    if (bWork)
        m_work.Set();
    else
        m_work.Reset();
    m_bWork = bWork;
}
