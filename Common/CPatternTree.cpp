#include "Common/CPatternTree.h"

#include "Bex/TextFunctions.h"

#include <utility>

void CPatternTree::Add(std::string_view pattern, Id id)
{
    Place place = ROOT;
    for (const char c : pattern) {
        const auto [way, bNew] =
            m_ways.try_emplace(Way(place, Bex::LowerAscii(c)), static_cast<Place>(m_patterns.size()));
        if (bNew)
            m_patterns.push_back(NONE);
        place = way->second;
    }
    m_patterns[place] = id;
}

std::vector<CPatternTree::Id> CPatternTree::Matching(std::string_view text) const
{
    SProgress progress;
    Enter(ROOT, progress);
    for (const char c : text) {
        if (progress.places.empty() && progress.stars.empty())
            break;
        Advance(Bex::LowerAscii(c), progress);
    }
    std::vector<Id> matching;
    for (const std::vector<Place>* pPlaces : {&progress.places, &progress.stars}) {
        for (const Place place : *pPlaces) {
            if (m_patterns[place] != NONE)
                matching.push_back(m_patterns[place]);
        }
    }
    return matching;
}

CPatternTree::Place CPatternTree::Next(Place from, char c) const
{
    const auto way = m_ways.find(Way(from, c));
    return way != m_ways.end() ? way->second : NONE;
}

void CPatternTree::Enter(Place place, SProgress& progress) const
{
    progress.places.push_back(place);
    for (Place star = Next(place, '*'); star != NONE && progress.starsSeen.insert(star).second; star = Next(star, '*'))
        progress.stars.push_back(star);
}

void CPatternTree::Advance(char c, SProgress& progress) const
{
    std::vector<Place> before = std::exchange(progress.places, {});
    before.insert(before.end(), progress.stars.begin(), progress.stars.end());
    for (const Place place : before) {
        for (const char cWay : {c, '?'}) {
            if (const Place next = Next(place, cWay); next != NONE)
                Enter(next, progress);
        }
    }
}
