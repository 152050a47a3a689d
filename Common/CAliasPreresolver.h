#pragma once

#include "Common/CAliasIndex.h"
#include "Common/CChainForest.h"

#include <functional>
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
/// What is known of the way is kept as links between entries, since chains share their ends; a link lasts until the
/// entry that it leads to is removed.
///
/// Used once, by one thread, on a table that nobody else changes.
class CAliasPreresolver
{
public:
    explicit CAliasPreresolver(CAliasIndex& index) : m_index(index), m_entries(index.Count()), m_chains(index.Count())
    {}
    /// Sets the values; hides the entries that have to be removed. False: broken off, as ShallStop said.
    bool Run(const std::function<bool()>& ShallStop);

private:
    using Id = CAliasIndex::Id;

    struct SEntry
    {
        std::optional<CAliasIndex::STarget> next; ///< what its value leads to; a user may be an address elsewhere, too
        std::vector<Id> linked;                   ///< entries that were linked to it
        std::vector<Id> spelling;                 ///< entries whose value spells its key and yet leads elsewhere
    };

    void NoteSpelling(Id entry);
    void Settle(Id entry);
    Bex::CSimpleString Follow(Id start); ///< to its end; empty: nowhere
    void Remove(Id entry);
    const CAliasIndex::STarget& Next(Id entry);
    CAliasIndex::STarget TargetOf(std::string_view value) const;
    bool MeetsItsOwnKey(Id entry, const Bex::CSimpleString& strEnd);

    CAliasIndex& m_index;
    std::vector<SEntry> m_entries;
    CChainForest m_chains; ///< of the entries' targets
};
