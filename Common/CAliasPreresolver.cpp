#include "Common/CAliasPreresolver.h"

#include "Bex/CActivity.h"
#include "Common/Globals.h"

#include <algorithm>

bool CAliasPreresolver::Run(const std::function<bool()>& ShallStop)
{
    for (const auto Step : {&CAliasPreresolver::NoteSpelling, &CAliasPreresolver::Settle}) {
        for (Id entry = 0; entry < m_index.Count(); ++entry) {
            if (ShallStop())
                return false;
            (this->*Step)(entry);
        }
    }
    return true;
}

/// Nearly always a target that spells an entry's key leads to the entry, too, which shows as a circle. These are the
/// others.
void CAliasPreresolver::NoteSpelling(Id entry)
{
    const std::string_view value = m_index.Entry(entry).value;
    const CAliasIndex::STarget& next = Next(entry);
    const Id spelled = m_index.FindSpelled(value);
    if (spelled != CAliasIndex::NONE && spelled != next.entry && spelled != entry && next.strUser != value)
        m_entries[spelled].spelling.push_back(entry);
}

void CAliasPreresolver::Settle(Id entry)
{
    const Bex::CSimpleString strEnd = Follow(entry);
    const bool bRemove = strEnd.IsEmpty() || MeetsItsOwnKey(entry, strEnd);
    m_chains.Cut(entry);
    if (bRemove) {
        Remove(entry);
    } else {
        m_index.Entry(entry).value = strEnd;
        m_entries[entry].next = CAliasIndex::STarget{CAliasIndex::NONE, strEnd};
    }
}

Bex::CSimpleString CAliasPreresolver::Follow(Id start)
{
    for (;;) {
        const Id last = m_chains.End(start);
        const CAliasIndex::STarget& next = Next(last);
        if (next.entry == CAliasIndex::NONE)
            return next.strUser;
        const bool bCircle = m_chains.End(next.entry) == last;
        if (bCircle || m_index.Entry(next.entry).value.EqualsNoCase(m_index.Entry(last).value))
            return {};
        m_chains.Link(last, next.entry);
        m_entries[next.entry].linked.push_back(last);
    }
}

void CAliasPreresolver::Remove(Id entry)
{
    m_index.Hide(entry);
    for (const Id linked : m_entries[entry].linked) {
        if (m_entries[linked].next->entry == entry) // it is not settled
            m_chains.Cut(linked);
    }
}

/// Kept until the entry that it leads to goes: removing others cannot change which one wins.
const CAliasIndex::STarget& CAliasPreresolver::Next(Id entry)
{
    std::optional<CAliasIndex::STarget>& next = m_entries[entry].next;
    if (!next || (next->entry != CAliasIndex::NONE && m_index.IsHidden(next->entry))) {
        Bex::CActivity::Alive();
        next = TargetOf(m_index.Entry(entry).value);
    }
    return *next;
}

CAliasIndex::STarget CAliasPreresolver::TargetOf(std::string_view value) const
{
    const bool bAddress = value.find('@') != std::string_view::npos;
    if (bAddress && IsLocalAddress(value))
        return m_index.Resolve(value);
    return {CAliasIndex::NONE, bAddress || Users().IsUser(value) ? Bex::CSimpleString(value) : Bex::CSimpleString()};
}

/// Of an entry that leads somewhere: is its key one of the targets on the way or the one at the end? One whose value is
/// its end stays in any case.
bool CAliasPreresolver::MeetsItsOwnKey(Id entry, const Bex::CSimpleString& strEnd)
{
    const CAliasIndex::SNode& node = m_index.Entry(entry);
    if (node.value == strEnd)
        return false;
    return node.key.EqualsNoCase(strEnd) || std::ranges::any_of(m_entries[entry].spelling, [&](Id spelling) {
               return m_index.Entry(spelling).value.EqualsNoCase(node.key) && m_chains.Passes(entry, spelling);
           });
}
