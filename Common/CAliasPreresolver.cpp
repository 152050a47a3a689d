#include "Common/CAliasPreresolver.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"

#include <algorithm>

void CAliasPreresolver::Run()
{
    for (Id entry = 0; entry < m_index.Count(); ++entry)
        MarkShadowed(entry);
    for (Id entry = 0; entry < m_index.Count(); ++entry)
        Rewrite(entry);
}

CAliasPreresolver::SOutcome CAliasPreresolver::EndOf(std::string_view value)
{
    SOutcome outcome;
    if (value.find('@') == std::string_view::npos)
        outcome.kind = Users().IsUser(value) ? EKind::Leads : EKind::Dead;
    else if (!IsLocalAddress(value))
        outcome.kind = EKind::Leads;
    if (outcome.kind == EKind::Leads)
        outcome.strEnd = value;
    return outcome;
}

/// Kept until its target goes: removing others cannot change which entry wins.
const CAliasIndex::STarget& CAliasPreresolver::Next(Id entry)
{
    SEntry& state = m_entries[entry];
    const bool bGone = state.next.entry != CAliasIndex::NONE && m_index.IsHidden(state.next.entry);
    if (!state.bNextKnown || bGone)
        state.next = m_index.Resolve(m_index.Entry(entry).value);
    state.bNextKnown = true;
    return state.next;
}

/// A step to an address that spells an entry's key removes that entry. Nearly always the address leads to the entry,
/// too, which shows as a circle; the others need to be told apart.
void CAliasPreresolver::MarkShadowed(Id entry)
{
    const std::string_view value = m_index.Entry(entry).value;
    if (EndOf(value).kind != EKind::Unknown)
        return;
    for (Id twin = m_index.FirstTwin(value); twin != CAliasIndex::NONE; twin = m_index.NextTwin(twin)) {
        if (twin != Next(entry).entry)
            m_entries[twin].bShadowed = true;
    }
}

void CAliasPreresolver::Rewrite(Id entry)
{
    SOutcome outcome = EndOf(m_index.Entry(entry).value);
    if (outcome.kind == EKind::Dead)
        m_index.Hide(entry);
    if (outcome.kind != EKind::Unknown)
        return;
    const bool bShadowed = m_entries[entry].bShadowed;
    outcome = bShadowed ? WalkShadowed(entry) : Walk(entry);
    const bool bOwnName = outcome.kind == EKind::Leads && SpellsKey(outcome.strEnd, entry);
    if (outcome.kind == EKind::Leads && !bOwnName) {
        m_index.Entry(entry).value = outcome.strEnd;
        return;
    }
    m_index.Hide(entry);
    if (bShadowed || bOwnName)
        ++m_nEpoch;
}

CAliasPreresolver::SOutcome CAliasPreresolver::Walk(Id start)
{
    ++m_nWalk;
    std::vector<Id> path;
    SOutcome outcome;
    for (Id entry = start; outcome.kind == EKind::Unknown;) {
        SEntry& state = m_entries[entry];
        if (state.nWalk == m_nWalk) {
            outcome = Circle(path, entry);
        } else if (IsValid(state.known, start)) {
            outcome = state.known;
            outcome.dependsOn = std::min(outcome.dependsOn, entry);
        } else {
            state.nWalk = m_nWalk;
            path.push_back(entry);
            outcome = Step(entry, entry);
        }
    }
    Remember(path, outcome);
    return outcome;
}

/// Where the entry's value ends up, or the entry that it leads on to.
CAliasPreresolver::SOutcome CAliasPreresolver::Step(Id entry, Id& next)
{
    const std::string_view value = m_index.Entry(entry).value;
    SOutcome outcome = EndOf(value);
    if (outcome.kind != EKind::Unknown)
        return outcome;
    const CAliasIndex::STarget& target = Next(entry);
    if (target.entry == CAliasIndex::NONE)
        return EndOf(target.strUser);
    next = target.entry;
    if (m_index.Entry(next).value.EqualsNoCase(value)) {
        outcome.kind = EKind::Dead;
        outcome.dependsOn = next;
    }
    return outcome;
}

CAliasPreresolver::SOutcome CAliasPreresolver::Circle(const std::vector<Id>& path, Id entry)
{
    SOutcome outcome;
    outcome.kind = EKind::Dead;
    outcome.dependsOn = *std::min_element(std::find(path.begin(), path.end(), entry), path.end());
    return outcome;
}

void CAliasPreresolver::Remember(const std::vector<Id>& path, SOutcome outcome)
{
    outcome.nEpoch = m_nEpoch;
    for (auto entry = path.rbegin(); entry != path.rend(); ++entry) {
        m_entries[*entry].known = outcome;
        outcome.dependsOn = std::min(outcome.dependsOn, *entry);
    }
}

bool CAliasPreresolver::IsValid(const SOutcome& outcome, Id current) const
{
    if (outcome.kind == EKind::Leads)
        return outcome.nEpoch == m_nEpoch;
    return outcome.kind == EKind::Dead && outcome.dependsOn >= current;
}

/// The same, step by step and without what is known from other walks.
CAliasPreresolver::SOutcome CAliasPreresolver::WalkShadowed(Id entry)
{
    ++m_nWalk;
    SOutcome dead;
    dead.kind = EKind::Dead;
    for (Id current = entry; m_entries[current].nWalk != m_nWalk;) {
        m_entries[current].nWalk = m_nWalk;
        const bool bOwnName = current != entry && SpellsKey(m_index.Entry(current).value, entry);
        SOutcome outcome = Step(current, current);
        if (bOwnName)
            return dead;
        if (outcome.kind != EKind::Unknown)
            return outcome;
    }
    return dead;
}

bool CAliasPreresolver::SpellsKey(std::string_view value, Id entry) const
{
    return m_index.Entry(entry).key.EqualsNoCase(value);
}
