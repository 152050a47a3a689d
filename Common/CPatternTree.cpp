#include "Common/CPatternTree.h"

#include "Bex/TextFunctions.h"

#include <algorithm>
#include <map>
#include <queue>
#include <set>
#include <string>
#include <tuple>
#include <utility>

namespace {

constexpr std::string_view WILDCARDS = "*?";

/// Several stars in a row match what one does.
std::string WithSingleStars(std::string_view text)
{
    std::string strText(text);
    const auto end = std::unique(strText.begin(), strText.end(), [](char a, char b) { return a == '*' && b == '*'; });
    strText.erase(end, strText.end());
    return strText;
}

} // namespace

/// The places that one text may lead to.
class CPatternTree::CSearch
{
public:
    CSearch(const CPatternTree& tree, std::string_view text)
        : m_tree(tree), m_strText(text), m_characters(Characters(text))
    {}

    /// A place behind a "*" that goes on through the text is known to be new.
    void Add(SPlace place, bool bGoesOn = false)
    {
        if (place.nFirst >= place.nBehind)
            return;
        const SBound bound = m_tree.BoundOf(place.nFirst, place.nBehind);
        if (bound.nRank == NONE || (bound.needed & ~m_characters) != 0)
            return;
        place.bAlike = m_tree.TextAt(place.nFirst) == m_tree.TextAt(place.nBehind - 1);
        if (place.bAlike) // it will be matched as a whole
            place = {.nFirst = place.nFirst, .nBehind = place.nBehind, .nDepth = 0, .nPosition = 0, .bAlike = true};
        place.nRank = bound.nRank;
        if ((bGoesOn && place.bStar) || IsNew(place))
            m_places.push(place);
    }
    Id Run()
    {
        while (!m_places.empty()) {
            const SPlace place = m_places.top();
            m_places.pop();
            if (!place.bAlike)
                Follow(place);
            else if (Bex::WildcardMatch(m_strText, m_tree.TextAt(place.nFirst)))
                return m_tree.m_idByRank[place.nRank];
        }
        return NONE;
    }

private:
    /// One behind a "*" goes on only up to where another has begun: it is remembered once, however long the text is.
    bool IsNew(SPlace& place)
    {
        if (!place.bStar)
            return m_seen.emplace(place.nFirst, place.nDepth, place.nPosition, place.bAlike).second;
        const auto [star, bFirst] = m_stars.try_emplace({place.nFirst, place.nDepth}, place.nPosition);
        if (!bFirst && star->second <= place.nPosition)
            return false;
        place.nEnd = bFirst ? NONE : star->second;
        star->second = place.nPosition;
        return true;
    }
    void Follow(SPlace place)
    {
        SPlace ended = place;
        ended.nBehind = m_tree.BehindEnded(place);
        Add(ended);
        place.nFirst = ended.nBehind;
        SPlace star = m_tree.Child(place, '*');
        star.bStar = true;
        Add(star);
        if (place.nPosition == m_strText.size())
            return;
        for (const char c : {Bex::LowerAscii(m_strText[place.nPosition]), '?'}) {
            SPlace next = m_tree.Child(place, c);
            ++next.nPosition;
            Add(next);
        }
        if (place.bStar && ++place.nPosition != place.nEnd)
            Add(place, true);
    }

    struct SIsWorse
    {
        bool operator()(const SPlace& a, const SPlace& b) const { return a.nRank > b.nRank; }
    };

    const CPatternTree& m_tree;
    std::string m_strText;
    uint64_t m_characters;
    std::priority_queue<SPlace, std::vector<SPlace>, SIsWorse> m_places;
    std::set<std::tuple<uint32_t, uint32_t, uint32_t, bool>> m_seen;
    std::map<std::pair<uint32_t, uint32_t>, uint32_t> m_stars; ///< and from where on it has the text
};

CPatternTree::CPatternTree(const std::vector<SPattern>& patterns) : m_bounds(2 * patterns.size())
{
    for (const SPattern& pattern : patterns) {
        m_leaves.push_back({WithSingleStars(pattern.text), static_cast<uint32_t>(m_idByRank.size())});
        m_idByRank.push_back(pattern.id);
        m_leafById.resize(std::max<size_t>(m_leafById.size(), pattern.id + size_t{1}), NONE);
    }
    std::ranges::sort(m_leaves, {}, &SLeaf::strText);
    for (uint32_t nLeaf = 0; nLeaf < m_leaves.size(); ++nLeaf) {
        const SLeaf& leaf = m_leaves[nLeaf];
        m_leafById[m_idByRank[leaf.nRank]] = nLeaf;
        m_bounds[m_leaves.size() + nLeaf] = {leaf.nRank, Characters(leaf.strText)};
    }
    for (size_t n = m_leaves.size(); n-- > 1;)
        m_bounds[n] = Joined(m_bounds[2 * n], m_bounds[2 * n + 1]);
}

CPatternTree::Id CPatternTree::FindBest(std::string_view text) const
{
    if (m_leaves.empty())
        return NONE;
    CSearch search(*this, text);
    search.Add({0, static_cast<uint32_t>(m_leaves.size()), 0, 0, false});
    return search.Run();
}

void CPatternTree::Remove(Id id)
{
    if (id >= m_leafById.size() || m_leafById[id] == NONE)
        return;
    size_t n = m_leaves.size() + m_leafById[id];
    m_bounds[n] = {};
    while ((n /= 2) > 0)
        m_bounds[n] = Joined(m_bounds[2 * n], m_bounds[2 * n + 1]);
}

CPatternTree::SBound CPatternTree::Joined(const SBound& a, const SBound& b)
{
    return {std::min(a.nRank, b.nRank), a.needed & b.needed};
}

/// A bit for each, which some share.
uint64_t CPatternTree::Characters(std::string_view text)
{
    uint64_t bits = 0;
    for (const char c : text) {
        if (WILDCARDS.find(c) == WILDCARDS.npos)
            bits |= uint64_t{1} << (Bex::LowerAscii(c) & 63);
    }
    return bits;
}

CPatternTree::SBound CPatternTree::BoundOf(uint32_t nFirst, uint32_t nBehind) const
{
    SBound bound;
    size_t nFrom = m_leaves.size() + nFirst;
    size_t nTo = m_leaves.size() + nBehind;
    for (; nFrom < nTo; nFrom /= 2, nTo /= 2) {
        if (nFrom % 2 == 1)
            bound = Joined(bound, m_bounds[nFrom++]);
        if (nTo % 2 == 1)
            bound = Joined(bound, m_bounds[--nTo]);
    }
    return bound;
}

uint32_t CPatternTree::BehindEnded(const SPlace& place) const
{
    const auto found = std::partition_point(m_leaves.begin() + place.nFirst, m_leaves.begin() + place.nBehind,
                                            [&](const SLeaf& leaf) { return leaf.strText.size() == place.nDepth; });
    return static_cast<uint32_t>(found - m_leaves.begin());
}

/// The patterns of a place that go on with a character; all of them are longer than its depth.
CPatternTree::SPlace CPatternTree::Child(const SPlace& place, char c) const
{
    const auto Next = [&](const SLeaf& leaf) { return static_cast<unsigned char>(leaf.strText[place.nDepth]); };
    const auto cNext = static_cast<unsigned char>(c);
    const auto end = m_leaves.begin() + place.nBehind;
    const auto first = std::partition_point(m_leaves.begin() + place.nFirst, end,
                                            [&](const SLeaf& leaf) { return Next(leaf) < cNext; });
    const auto behind = std::partition_point(first, end, [&](const SLeaf& leaf) { return Next(leaf) == cNext; });
    return {static_cast<uint32_t>(first - m_leaves.begin()), static_cast<uint32_t>(behind - m_leaves.begin()),
            place.nDepth + 1, place.nPosition};
}
