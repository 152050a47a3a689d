#pragma once

#include "Bex/CStorableStringHash.h"
#include "Common/NoCase.h"

#include <cstdint>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

/// Finds the alias that an address leads to, without walking the table.
///
/// Gives what this walk would: the entry with exactly the address as its key, else of all entries whose key matches
/// the address as a pattern the one with the longest key, of equally long ones the first in the table's order.
/// Refers to the entries of the table; a change of one's key, or of their number, ends its validity. Used under the
/// table's lock.
class CAliasIndex
{
public:
    using CTable = Bex::CHashMap<Bex::CSimpleString, Bex::CSimpleString>;
    using SNode = CTable::SNode;
    using Id = uint32_t; ///< of an entry: its place in the table's order
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
    STarget Resolve(std::string_view address) const; ///< with sub-addresses, catch-alls and users

    uint32_t Count() const { return static_cast<uint32_t>(m_entries.size()); }
    const SNode& Entry(Id entry) const { return *m_entries[entry].pNode; }
    SNode& Entry(Id entry) { return *m_entries[entry].pNode; }
    /// The entries whose keys equal the text but for ASCII case: the first, then the one after each; NONE at the end.
    Id FirstTwin(std::string_view text) const;
    Id NextTwin(Id entry) const { return m_entries[entry].nextTwin; }

    void Hide(Id entry) { m_entries[entry].bHidden = true; } ///< it is found no more
    bool IsHidden(Id entry) const { return m_entries[entry].bHidden; }

private:
    struct SEntry
    {
        SNode* pNode;
        Id nextTwin = NONE;
        bool bHidden = false;
    };
    using CPatterns = std::vector<Id>; ///< in the order in which they win

    /// The plain text before a pattern's first wildcard and behind its last one.
    struct SAffixes
    {
        std::string_view prefix;
        std::string_view suffix;
    };
    struct SAffixesHash
    {
        size_t operator()(const SAffixes& affixes) const
        {
            return SNoCaseHash()(affixes.prefix) * 31 + SNoCaseHash()(affixes.suffix);
        }
    };
    struct SAffixesEqual
    {
        bool operator()(const SAffixes& a, const SAffixes& b) const
        {
            return Bex::EqualNoCase(a.prefix, b.prefix) && Bex::EqualNoCase(a.suffix, b.suffix);
        }
    };
    using CLengths = std::pair<size_t, size_t>; ///< of a prefix and a suffix

    void AddKey(Id entry);
    void AddPattern(Id entry);
    bool WinsOver(Id a, Id b) const;
    Id FirstMatch(const CPatterns& patterns, std::string_view address, Id best) const;

    std::vector<SEntry> m_entries;
    std::unordered_map<std::string_view, Id, SNoCaseHash, SNoCaseEqual> m_byKey; ///< the first of the twins
    std::unordered_map<SAffixes, CPatterns, SAffixesHash, SAffixesEqual> m_patterns;
    std::set<CLengths> m_lengths; ///< that patterns have, so that an address can be cut accordingly
};
