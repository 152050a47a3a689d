#pragma once

#include "Bex/CStorableStringHash.h"
#include "Common/CPatternSet.h"

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

/// Finds the alias that an address leads to, without walking the table.
///
/// Gives what this walk would: the entry with exactly the address as its key, else of all entries whose key matches
/// the address as a pattern the one with the longest key, of equally long ones the first in the table's order.
/// Keys are lower case. Refers to the entries of the table; a change of one's key, or of their number, ends its
/// validity. Used under the table's lock.
class CAliasIndex
{
public:
    using CTable = Bex::CHashMap<Bex::CSimpleString, Bex::CSimpleString>;
    using SNode = CTable::SNode;
    using Id = CPatternSet::Id; ///< of an entry: its place in the table's order
    static constexpr Id NONE = UINT32_MAX;

    /// What an address leads to: an entry, a user of its local part's name, or nothing.
    struct STarget
    {
        Id entry = NONE;
        Bex::CSimpleString strUser;
    };

    explicit CAliasIndex(const CTable& table);

    Id Find(std::string_view address) const;
    Id FindExact(std::string_view address) const;
    Id FindSpelled(std::string_view address) const;  ///< the entry with this key but for ASCII case
    STarget Resolve(std::string_view address) const; ///< with sub-addresses, catch-alls and users

    uint32_t Count() const { return static_cast<uint32_t>(m_entries.size()); }
    const SNode& Entry(Id entry) const { return *m_entries[entry].pNode; }
    SNode& Entry(Id entry) { return *m_entries[entry].pNode; }

    void Hide(Id entry); ///< it is found no more
    bool IsHidden(Id entry) const { return m_entries[entry].bHidden; }

private:
    struct SEntry
    {
        SNode* pNode;
        bool bHidden = false;
    };

    bool WinsOver(Id a, Id b) const;

    std::vector<SEntry> m_entries;
    std::unordered_map<std::string_view, Id> m_byKey;
    CPatternSet m_patterns; ///< the keys with wildcards
};
