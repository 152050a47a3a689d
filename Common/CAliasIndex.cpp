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
    std::vector<CPatternSet::SPattern> patterns;
    for (CTable::CIterator node(table); node; ++node) {
        const Id entry = Count();
        m_entries.push_back({&*node});
        m_byKey.emplace(node->key, entry);
        if (HasWildcard(node->key))
            patterns.push_back({node->key, entry});
    }
    std::ranges::sort(patterns, [this](const auto& a, const auto& b) { return WinsOver(a.id, b.id); });
    m_patterns = CPatternSet(patterns);
}

void CAliasIndex::Hide(Id entry)
{
    m_entries[entry].bHidden = true;
    m_patterns.Remove(entry);
}

bool CAliasIndex::WinsOver(Id a, Id b) const
{
    const uint32_t nLengthA = Entry(a).key.Length();
    const uint32_t nLengthB = Entry(b).key.Length();
    return nLengthA != nLengthB ? nLengthA > nLengthB : a < b;
}

CAliasIndex::Id CAliasIndex::FindExact(std::string_view address) const
{
    const auto found = m_byKey.find(address);
    return found != m_byKey.end() && !IsHidden(found->second) ? found->second : NONE;
}

CAliasIndex::Id CAliasIndex::FindSpelled(std::string_view address) const
{
    return FindExact(Bex::CSimpleString(address).Lowered());
}

CAliasIndex::Id CAliasIndex::Find(std::string_view address) const
{
    const Id exact = FindExact(address);
    if (exact != NONE || address.empty() || HasWildcard(address))
        return exact;
    const Id spelled = FindSpelled(address); // a key without wildcards matches whatever the case
    const Id pattern = m_patterns.FindBest(address);
    return pattern != NONE && (spelled == NONE || WinsOver(pattern, spelled)) ? pattern : spelled;
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
