#include "Common/CAliasIndex.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"

#include <algorithm>
#include <string>

namespace {

constexpr std::string_view WILDCARDS = "*?";
constexpr auto NOWHERE = std::string_view::npos;

bool HasWildcard(std::string_view text) { return text.find_first_of(WILDCARDS) != NOWHERE; }

} // namespace

CAliasIndex::CAliasIndex(const CTable& table)
{
    m_entries.reserve(table.Count());
    m_byKey.reserve(table.Count());
    for (CTable::CIterator node(table); node; ++node) {
        const Id entry = Count();
        m_entries.push_back({&*node});
        AddKey(entry);
        if (HasWildcard(node->key))
            AddPattern(entry);
    }
    for (auto& [affixes, patterns] : m_patterns)
        std::sort(patterns.begin(), patterns.end(), [this](Id a, Id b) { return WinsOver(a, b); });
}

void CAliasIndex::AddKey(Id entry)
{
    const auto [place, bNew] = m_byKey.try_emplace(Entry(entry).key.View(), entry);
    if (bNew)
        return;
    Id last = place->second;
    while (NextTwin(last) != NONE)
        last = NextTwin(last);
    m_entries[last].nextTwin = entry;
}

void CAliasIndex::AddPattern(Id entry)
{
    const std::string_view pattern = Entry(entry).key;
    const size_t nPrefix = pattern.find_first_of(WILDCARDS);
    const std::string_view suffix = pattern.substr(pattern.find_last_of(WILDCARDS) + 1);
    m_patterns[{pattern.substr(0, nPrefix), suffix}].push_back(entry);
    m_lengths.emplace(nPrefix, suffix.size());
}

bool CAliasIndex::WinsOver(Id a, Id b) const
{
    const uint32_t nLengthA = Entry(a).key.Length();
    const uint32_t nLengthB = Entry(b).key.Length();
    return nLengthA != nLengthB ? nLengthA > nLengthB : a < b;
}

CAliasIndex::Id CAliasIndex::FirstTwin(std::string_view text) const
{
    const auto found = m_byKey.find(text);
    return found != m_byKey.end() ? found->second : NONE;
}

CAliasIndex::Id CAliasIndex::FindExact(std::string_view address) const
{
    Id entry = FirstTwin(address);
    while (entry != NONE && (IsHidden(entry) || Entry(entry).key != address))
        entry = NextTwin(entry);
    return entry;
}

CAliasIndex::Id CAliasIndex::FirstMatch(const CPatterns& patterns, std::string_view address, Id best) const
{
    for (const Id entry : patterns) {
        if (best != NONE && WinsOver(best, entry))
            break;
        const std::string_view pattern = Entry(entry).key;
        if (!IsHidden(entry) && Bex::WildcardMatch(address, pattern))
            return entry;
    }
    return best;
}

CAliasIndex::Id CAliasIndex::Find(std::string_view address) const
{
    const Id exact = FindExact(address);
    if (exact != NONE || address.empty() || HasWildcard(address))
        return exact;
    Id best = FirstTwin(address); // a key without wildcards matches whatever the case
    while (best != NONE && IsHidden(best))
        best = NextTwin(best);
    for (const auto& [nPrefix, nSuffix] : m_lengths) {
        if (nPrefix + nSuffix > address.size())
            continue;
        const auto found = m_patterns.find({address.substr(0, nPrefix), address.substr(address.size() - nSuffix)});
        if (found != m_patterns.end())
            best = FirstMatch(found->second, address, best);
    }
    return best;
}

CAliasIndex::STarget CAliasIndex::Resolve(std::string_view address) const
{
    const size_t nAt = address.find('@');
    const std::string_view domain = nAt != NOWHERE ? address.substr(nAt + 1) : std::string_view();
    const std::string_view localPart = address.substr(0, nAt);
    const std::string_view mailbox = localPart.substr(0, localPart.find(Config().GetLocalPartDelimiter()));
    std::string strAddress(mailbox);
    if (!domain.empty() || mailbox.size() == localPart.size()) // a cut address loses its "@" with an empty domain
        strAddress.append(address.substr(localPart.size()));

    Id entry = Find(strAddress);
    if (entry == NONE && !domain.empty())
        entry = Find("*@" + std::string(domain));
    if (entry == NONE && !domain.empty())
        entry = Find(mailbox);
    if (entry != NONE)
        return {entry, {}};
    const std::string_view name = domain.empty() ? std::string_view(strAddress) : mailbox;
    return {NONE, Users().IsUser(name) ? Bex::CSimpleString(name) : Bex::CSimpleString()};
}
