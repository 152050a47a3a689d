#include "Tobix/COutgoingFiles.h"

bool COutgoingFiles::AddPending(std::string_view name)
{
    const Bex::CScopedLock lock(m_lock);
    if (m_index.contains(name))
        return false;
    m_lists[PENDING].push_back({Bex::CSimpleString(name), PENDING});
    const CEntries::iterator entry = std::prev(m_lists[PENDING].end());
    m_index.emplace(entry->strName.View(), entry);
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
    const EList list = m_lists[PENDING].empty() ? RETRY_DUE : PENDING;
    if (m_lists[list].empty())
        return false;
    const CEntries::iterator entry = m_lists[list].begin();
    strName = entry->strName;
    Move(entry, IN_PROGRESS);
    TellWork();
    return true;
}

void COutgoingFiles::RetryLater(std::string_view name)
{
    const Bex::CScopedLock lock(m_lock);
    if (const auto found = m_index.find(name); found != m_index.end()) {
        Move(found->second, RETRY_WAIT);
    } else {
        m_lists[RETRY_WAIT].push_back({Bex::CSimpleString(name), RETRY_WAIT});
        const CEntries::iterator entry = std::prev(m_lists[RETRY_WAIT].end());
        m_index.emplace(entry->strName.View(), entry);
    }
    TellWork();
}

void COutgoingFiles::FinishDelivery(std::string_view name)
{
    const Bex::CScopedLock lock(m_lock);
    const auto found = m_index.find(name);
    if (found == m_index.end() || found->second->list != IN_PROGRESS)
        return;
    const CEntries::iterator entry = found->second;
    m_index.erase(found); // before the name it points to
    m_lists[IN_PROGRESS].erase(entry);
}

void COutgoingFiles::ReleaseRetries()
{
    const Bex::CScopedLock lock(m_lock);
    for (SEntry& entry : m_lists[RETRY_WAIT])
        entry.list = RETRY_DUE;
    m_lists[RETRY_DUE].splice(m_lists[RETRY_DUE].end(), m_lists[RETRY_WAIT]);
    TellWork();
}

bool COutgoingFiles::HasPending() const
{
    const Bex::CScopedLock lock(m_lock);
    return !m_lists[PENDING].empty();
}

/// To the end of the list.
void COutgoingFiles::Move(CEntries::iterator entry, EList list)
{
    m_lists[list].splice(m_lists[list].end(), m_lists[entry->list], entry);
    entry->list = list;
}

void COutgoingFiles::TellWork()
{
    const bool bWork = !m_lists[PENDING].empty() || !m_lists[RETRY_DUE].empty();
    if (bWork == m_bWork)
        return;
    if (bWork)
        m_work.Set();
    else
        m_work.Reset();
    m_bWork = bWork;
}
