// How COutgoingFiles keeps to a number of threads for each domain.

#include "Tobix/COutgoingFiles.h"

void COutgoingFiles::Announce(std::string_view name, std::string_view domain, std::string_view route,
                              std::string_view origin)
{
    const Bex::CScopedLock lock(m_lock);
    if (m_nPerDomain > 0 || m_bRoutes || m_bOrigins)
        m_announced[std::string(name)] = {std::string(domain), std::string(route),
                                          std::string(m_bOrigins ? origin : std::string_view())};
}

void COutgoingFiles::Withdraw(std::string_view name)
{
    const Bex::CScopedLock lock(m_lock);
    m_announced.erase(std::string(name));
}

bool COutgoingFiles::WantsDomain(std::string_view name) const
{
    const Bex::CScopedLock lock(m_lock);
    const auto found = m_index.find(name);
    return found != m_index.end() &&
           ((m_nPerDomain > 0 && found->second->pDomain == nullptr) || (m_bRoutes && found->second->pRoute == nullptr));
}

bool COutgoingFiles::EnterDomain(std::string_view name, std::string_view domain, std::string_view route)
{
    const Bex::CScopedLock lock(m_lock);
    const auto found = m_index.find(name);
    if (domain.empty() || found == m_index.end())
        return true;
    SetRoute(*found->second, route);
    if (m_nPerDomain == 0 || found->second->pDomain != nullptr)
        return true;
    SetDomain(*found->second, domain);
    const bool bStarted = StartUnlessFull(found->second);
    TellWork();
    return bStarted;
}

void COutgoingFiles::SetDomain(SEntry& entry, std::string_view domain)
{
    if (m_nPerDomain == 0)
        return;
    SDomain& place = m_domains[std::string(domain)];
    place.strName = domain;
    ++place.nNames;
    entry.pDomain = &place;
}

/// The one whose turn is the first, held back or not.
bool COutgoingFiles::Next(CEntries::iterator& entry)
{
    const EList list = m_lists[PENDING].empty() ? RETRY_DUE : PENDING;
    const bool bListed = !m_lists[list].empty();
    if (bListed)
        entry = m_lists[list].begin();
    if (m_ready.empty() || (bListed && entry->turn < m_ready.begin()->first))
        return bListed;
    entry = m_ready.begin()->second->heldBack.begin()->second;
    return true;
}

/// In progress then, or held back until its domain has a thread to spare.
bool COutgoingFiles::StartUnlessFull(CEntries::iterator entry)
{
    SDomain* const pDomain = entry->pDomain;
    if (pDomain == nullptr) {
        Move(entry, IN_PROGRESS);
        return true;
    }
    const bool bStarts = !IsFull(*pDomain);
    if (bStarts) {
        GiveUpPlace(*entry);
        Move(entry, IN_PROGRESS);
        ++pDomain->nThreads;
        entry->bPlace = true;
    } else {
        pDomain->heldBack.emplace(entry->turn, entry);
        Move(entry, HELD_BACK);
        Enlist(entry);
        m_nPendingHeldBack += entry->turn.first == PENDING ? 1 : 0;
    }
    TellReady(*pDomain);
    return bStarts;
}

/// A thread is done with the name, for now or for good.
void COutgoingFiles::Leave(SEntry& entry)
{
    if (entry.pDomain == nullptr)
        return;
    LeavePlace(entry);
    GiveUpPlace(entry);
    TellReady(*entry.pDomain);
}

void COutgoingFiles::LeavePlace(SEntry& entry)
{
    if (std::exchange(entry.bPlace, false))
        --entry.pDomain->nThreads;
}

void COutgoingFiles::LeaveForGood(SEntry& entry)
{
    Leave(entry);
    if (entry.pDomain != nullptr && --entry.pDomain->nNames == 0)
        m_domains.erase(std::string(entry.pDomain->strName));
    entry.pDomain = nullptr;
    Unlist(entry);
    if (entry.pRoute != nullptr && --entry.pRoute->nNames == 0)
        m_routes.erase(std::string(entry.pRoute->strName));
    entry.pRoute = nullptr;
}

void COutgoingFiles::GiveUpPlace(const SEntry& entry)
{
    if (entry.list != HELD_BACK)
        return;
    entry.pDomain->heldBack.erase(entry.turn);
    m_nPendingHeldBack -= entry.turn.first == PENDING ? 1 : 0;
}

void COutgoingFiles::TellReady(SDomain& domain)
{
    if (domain.ready)
        m_ready.erase(*domain.ready);
    domain.ready.reset();
    if (IsFull(domain) || domain.heldBack.empty())
        return;
    const CTurn first = domain.heldBack.begin()->first;
    m_ready.emplace(first, &domain);
    domain.ready = first;
}
