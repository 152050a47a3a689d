#pragma once

#include "Common/CAliasIndex.h"

#include <cstdint>
#include <string_view>
#include <vector>

/// Replaces the targets of aliases by what they finally lead to.
///
/// The outcome is that of rewriting the entries one after the other, in the table's order, each step by step until it
/// is a user or an address elsewhere, an entry that leads nowhere or back to itself being removed on the spot: so what
/// an entry leads to depends on which of those behind it were removed before. What one walk finds is kept for the
/// entries that it passed, since chains share their ends. A walk that goes round in a circle leads nowhere.
///
/// Used once, under the table's lock.
class CAliasPreresolver
{
public:
    explicit CAliasPreresolver(CAliasIndex& index) : m_index(index), m_entries(index.Count()) {}
    void Run(); ///< sets the values; hides the entries that have to be removed

private:
    using Id = CAliasIndex::Id;

    enum class EKind { Unknown, Leads, Dead };
    /// Where a value or an entry ends up.
    struct SOutcome
    {
        EKind kind = EKind::Unknown;
        Bex::CSimpleString strEnd; ///< when it leads somewhere
        /// When it is dead: the first entry, in the table's order, on which that depends; once that one has been
        /// rewritten or removed, this may be wrong.
        Id dependsOn = CAliasIndex::NONE;
        uint32_t nEpoch = 0;
    };
    struct SEntry
    {
        CAliasIndex::STarget next; ///< what the value, a local address, is resolved to
        bool bNextKnown = false;
        bool bShadowed = false; ///< some value spells this entry's key and yet leads elsewhere
        uint32_t nWalk = 0;     ///< the last walk that passed
        SOutcome known;
    };

    static SOutcome EndOf(std::string_view value); ///< Unknown: it has to be resolved
    const CAliasIndex::STarget& Next(Id entry);
    void MarkShadowed(Id entry);
    void Rewrite(Id entry);
    SOutcome Walk(Id start);
    SOutcome Step(Id entry, Id& next);
    static SOutcome Circle(const std::vector<Id>& path, Id entry);
    void Remember(const std::vector<Id>& path, SOutcome outcome);
    bool IsValid(const SOutcome& outcome, Id current) const;
    SOutcome WalkShadowed(Id entry);
    bool SpellsKey(std::string_view value, Id entry) const;

    CAliasIndex& m_index;
    std::vector<SEntry> m_entries;
    uint32_t m_nWalk = 0;
    uint32_t m_nEpoch = 0; ///< counts the removals of entries that others lead somewhere through
};
