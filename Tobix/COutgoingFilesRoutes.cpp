// How COutgoingFiles finds what goes the same way.

#include "Tobix/COutgoingFiles.h"

Bex::CSimpleString COutgoingFiles::RouteOf(std::string_view name) const
{
    const Bex::CScopedLock lock(m_lock);
    const auto found = m_index.find(name);
    if (found == m_index.end() || found->second->pRoute == nullptr)
        return {};
    return std::string_view(found->second->pRoute->strName);
}

bool COutgoingFiles::TakeAlong(std::string_view name, std::string_view route, Bex::CSimpleString& strNext)
{
    const Bex::CScopedLock lock(m_lock);
    CEntries::iterator next;
    if (!NextAlong(route, next))
        return false;
    const auto current = m_index.find(name);
    if (current != m_index.end() && current->second->bPlace && current->second->pDomain == next->pDomain)
        LeavePlace(*current->second);
    if (next->pDomain != nullptr && IsFull(*next->pDomain))
        return false;
    StartUnlessFull(next);
    strNext = next->strName;
    TellWork();
    return true;
}

bool COutgoingFiles::NextAlong(std::string_view route, CEntries::iterator& entry)
{
    const auto found = m_routes.find(std::string(route));
    if (found == m_routes.end() || found->second.waiting.empty())
        return Next(entry) && entry->pRoute == nullptr;
    entry = found->second.waiting.begin()->second;
    return true;
}

void COutgoingFiles::GiveBack(std::string_view name, std::string_view from)
{
    const Bex::CScopedLock lock(m_lock);
    CEntries::iterator entry, before;
    if (!FindInProgress(name, entry))
        return;
    if (FindInProgress(from, before) && before != entry && before->pDomain == entry->pDomain)
        std::swap(before->bPlace, entry->bPlace);
    Leave(*entry);
    CEntries& list = m_lists[entry->turn.first];
    if (!list.empty() && list.front().turn < entry->turn) {
        Queue(entry, entry->turn.first);
    } else {
        Move(entry, entry->turn.first);
        list.splice(list.begin(), list, entry);
        Enlist(entry);
    }
    TellWork();
}

void COutgoingFiles::SetRoute(SEntry& entry, std::string_view route)
{
    if (!m_bRoutes || route.empty() || entry.pRoute != nullptr)
        return;
    SRoute& place = m_routes[std::string(route)];
    place.strName = route;
    ++place.nNames;
    entry.pRoute = &place;
}

void COutgoingFiles::Enlist(CEntries::iterator entry)
{
    if (entry->pRoute != nullptr)
        entry->pRoute->waiting.emplace(entry->turn, entry);
}

void COutgoingFiles::Unlist(const SEntry& entry)
{
    if (entry.pRoute != nullptr)
        entry.pRoute->waiting.erase(entry.turn);
}
