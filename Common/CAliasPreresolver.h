#pragma once

#include "Common/CAliasIndex.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

/// Replaces the targets of aliases by what they finally lead to.
///
/// One entry after the other, in the table's order, is followed from target to target. The user or address elsewhere at
/// which that ends becomes its target. When it ends nowhere, goes round in a circle or meets the entry's own key, the
/// entry is removed, and those behind it are followed without it:
///
///     w@l: x@l    x@l, y@l, x@l again: a circle, removed
///     x@l: y@l    y@l, x@l: a circle, removed
///     y@l: x@l    there is no x@l any more, so "*@l" takes it: ann
///     *@l: ann    a user: stays
///
/// What one walk finds is kept for the entries that it passed, since chains share their ends. A target holds for good.
/// "Nowhere" holds until the turn of the first of the entries behind it, which is removed then: so what the walk from
/// w@l finds is still true for x@l, which passes y@l alone, but not for y@l, since x@l has gone.
///
/// Used once, under the table's lock.
class CAliasPreresolver
{
public:
    explicit CAliasPreresolver(CAliasIndex& index) : m_index(index), m_entries(index.Count()) {}
    void Run(); ///< sets the values; hides the entries that have to be removed

private:
    using Id = CAliasIndex::Id;

    /// Where an entry ends up.
    struct SEnd
    {
        Bex::CSimpleString strTarget;      ///< empty: nowhere
        Id holdsUntil = CAliasIndex::NONE; ///< this entry's turn is over; NONE: for good
        bool IsNowhere() const { return strTarget.IsEmpty(); }
    };
    struct SEntry
    {
        std::optional<CAliasIndex::STarget> next; ///< what its value leads to; a user may be an address elsewhere, too
        std::optional<SEnd> known;
        bool bSpelled = false; ///< some value spells this entry's key and yet leads elsewhere
        uint32_t nWalk = 0;    ///< the last walk that passed
    };

    void MarkSpelled(Id entry);
    void Settle(Id entry);
    SEnd Follow(Id start);
    static SEnd Circle(const std::vector<Id>& path, Id entry);
    void Remember(const std::vector<Id>& path, SEnd end);
    const CAliasIndex::STarget& Next(Id entry);
    CAliasIndex::STarget TargetOf(std::string_view value) const;
    bool MayMeetItsOwnKey(Id entry, const SEnd& end) const;
    bool MeetsItsOwnKey(Id entry);

    CAliasIndex& m_index;
    std::vector<SEntry> m_entries;
    uint32_t m_nWalk = 0;
};
