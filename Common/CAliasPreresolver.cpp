#include "Common/CAliasPreresolver.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"

#include <algorithm>

void CAliasPreresolver::Run()
{
    for (Id entry = 0; entry < m_index.Count(); ++entry)
        MarkSpelled(entry);
    for (Id entry = 0; entry < m_index.Count(); ++entry)
        Settle(entry);
}

void CAliasPreresolver::MarkSpelled(Id entry)
{
    const std::string_view value = m_index.Entry(entry).value;
    const CAliasIndex::STarget& next = Next(entry);
    const Id spelled = m_index.FindSpelled(value);
    if (spelled != CAliasIndex::NONE && spelled != next.entry && next.strUser != value)
        m_entries[spelled].bSpelled = true;
}

void CAliasPreresolver::Settle(Id entry)
{
    const SEnd end = Follow(entry);
    if (end.IsNowhere() || (MayMeetItsOwnKey(entry, end) && MeetsItsOwnKey(entry))) {
        m_index.Hide(entry);
    } else {
        m_index.Entry(entry).value = end.strTarget;
        m_entries[entry].next = CAliasIndex::STarget{CAliasIndex::NONE, end.strTarget};
    }
}

CAliasPreresolver::SEnd CAliasPreresolver::Follow(Id start)
{
    ++m_nWalk;
    std::vector<Id> path;
    std::optional<SEnd> end;
    for (Id entry = start; !end;) {
        SEntry& state = m_entries[entry];
        if (state.nWalk == m_nWalk) {
            end = Circle(path, entry);
            break;
        }
        state.nWalk = m_nWalk;
        path.push_back(entry);
        const Id next = Next(entry).entry;
        if (state.known && state.known->holdsUntil >= start)
            end = state.known;
        else if (next == CAliasIndex::NONE)
            end = SEnd{state.next->strUser};
        else if (m_index.Entry(next).value.EqualsNoCase(m_index.Entry(entry).value))
            end = SEnd{{}, next};
        else
            entry = next;
    }
    Remember(path, *end);
    return *end;
}

CAliasPreresolver::SEnd CAliasPreresolver::Circle(const std::vector<Id>& path, Id entry)
{
    return {{}, *std::min_element(std::find(path.begin(), path.end(), entry), path.end())};
}

/// Nothing is kept for entries that come to an entry which may be removed although it leads somewhere.
void CAliasPreresolver::Remember(const std::vector<Id>& path, SEnd end)
{
    for (auto entry = path.rbegin(); entry != path.rend() && !MayMeetItsOwnKey(*entry, end); ++entry) {
        m_entries[*entry].known = end;
        if (end.IsNowhere())
            end.holdsUntil = std::min(end.holdsUntil, *entry);
    }
}

/// Kept until the entry that it leads to goes: removing others cannot change which one wins.
const CAliasIndex::STarget& CAliasPreresolver::Next(Id entry)
{
    std::optional<CAliasIndex::STarget>& next = m_entries[entry].next;
    if (!next || (next->entry != CAliasIndex::NONE && m_index.IsHidden(next->entry)))
        next = TargetOf(m_index.Entry(entry).value);
    return *next;
}

CAliasIndex::STarget CAliasPreresolver::TargetOf(std::string_view value) const
{
    const bool bAddress = value.find('@') != std::string_view::npos;
    if (bAddress && IsLocalAddress(value))
        return m_index.Resolve(value);
    return {CAliasIndex::NONE, bAddress || Users().IsUser(value) ? Bex::CSimpleString(value) : Bex::CSimpleString()};
}

/// Nearly always a target that spells an entry's key leads to the entry, too, which shows as a circle. These are the
/// others; an entry whose value is its end stays in any case.
bool CAliasPreresolver::MayMeetItsOwnKey(Id entry, const SEnd& end) const
{
    const CAliasIndex::SNode& node = m_index.Entry(entry);
    return !end.IsNowhere() && node.value != end.strTarget &&
           (m_entries[entry].bSpelled || node.key.EqualsNoCase(end.strTarget));
}

/// Of an entry that leads somewhere: is its key one of the targets on the way or the one at the end?
bool CAliasPreresolver::MeetsItsOwnKey(Id entry)
{
    const Bex::CSimpleString& strKey = m_index.Entry(entry).key;
    for (Id current = entry; current != CAliasIndex::NONE;) {
        const CAliasIndex::STarget& next = Next(current);
        const bool bEnd = next.entry == CAliasIndex::NONE;
        if (strKey.EqualsNoCase(bEnd ? next.strUser : m_index.Entry(next.entry).value))
            return true;
        current = next.entry;
    }
    return false;
}
