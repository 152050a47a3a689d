#include "Common/CPatternBlock.h"

#include <algorithm>
#include <bit>

namespace {

using Bits = CPatternBlock::Bits;

// What a column tells of each place: which patterns need a character with these upper or lower four bits there, have a
// "*" there, the last one of theirs, or begin there.
constexpr size_t UPPER = 0;
constexpr size_t LOWER = 16;
constexpr size_t STARS = 32;
constexpr size_t LAST_STARS = 33;
constexpr size_t BEGINS = 34;
constexpr size_t COLUMNS = 35;

size_t UpperColumn(char c) { return UPPER + (static_cast<unsigned char>(c) >> 4); }
size_t LowerColumn(char c) { return LOWER + (static_cast<unsigned char>(c) & 15); }

size_t Needed(std::string_view pattern)
{
    return pattern.size() - static_cast<size_t>(std::ranges::count(pattern, '*'));
}

void Set(Bits& bits, size_t nBit) { bits[nBit / 64] |= uint64_t{1} << nBit % 64; }

bool IsNone(const Bits& bits) { return (bits[0] | bits[1] | bits[2] | bits[3]) == 0; }

size_t FirstOf(const Bits& bits)
{
    for (size_t nWord = 0; nWord < bits.size(); ++nWord) {
        if (bits[nWord] != 0)
            return nWord * 64 + static_cast<size_t>(std::countr_zero(bits[nWord]));
    }
    return CPatternBlock::MOST;
}

Bits Both(const Bits& a, const Bits& b) { return {a[0] & b[0], a[1] & b[1], a[2] & b[2], a[3] & b[3]}; }
Bits Without(const Bits& a, const Bits& b) { return {a[0] & ~b[0], a[1] & ~b[1], a[2] & ~b[2], a[3] & ~b[3]}; }

/// One character of the text. Ascending, so that each place is taken from before it is filled anew.
void Advance(Bits* __restrict pPlaces, size_t nFirst, size_t nLast, const Bits* pUpper, const Bits* pLower,
             const Bits* pStars)
{
    for (size_t n = nFirst; n <= nLast; ++n) {
        for (size_t nWord = 0; nWord < CPatternBlock::WORDS; ++nWord)
            pPlaces[n][nWord] = (pPlaces[n + 1][nWord] & pUpper[n + 1][nWord] & pLower[n + 1][nWord]) |
                                (pPlaces[n][nWord] & pStars[n][nWord]);
    }
}

} // namespace

CPatternBlock::CPatternBlock(std::span<const std::string_view> patterns)
{
    for (const std::string_view pattern : patterns) {
        m_nLeast = std::min(m_nLeast, Needed(pattern));
        m_nMost = std::max(m_nMost, Needed(pattern));
    }
    m_columns.resize(COLUMNS * (m_nMost + 2));
    for (size_t n = 0; n < patterns.size(); ++n)
        Enter(patterns[n], n);
}

void CPatternBlock::Enter(std::string_view pattern, size_t nPattern)
{
    const size_t nTail = pattern.size() - 1 - pattern.rfind('*'); // without a "*" all of it
    if (nTail < pattern.size()) {
        Set(Column(LAST_STARS)[nTail], nPattern);
        m_lastStars = {std::min(m_lastStars.nFirst, nTail), std::max(m_lastStars.nLast, nTail)};
    }
    size_t nPlace = 0;
    for (auto c = pattern.rbegin(); c != pattern.rend(); ++c) {
        if (*c == '*') {
            Set(Column(STARS)[nPlace], nPattern);
            continue;
        }
        ++nPlace;
        for (size_t nColumn = UPPER; nColumn < STARS; ++nColumn) {
            if (*c == '?' || nColumn == UpperColumn(*c) || nColumn == LowerColumn(*c))
                Set(Column(nColumn)[nPlace], nPattern);
        }
    }
    Set(Column(BEGINS)[nPlace], nPattern);
}

size_t CPatternBlock::FindFirst(std::string_view text, Bits candidates, std::vector<Bits>& places) const
{
    constexpr size_t PAUSE = 32;
    if (text.size() < m_nLeast || IsNone(candidates) || !EndAlike(text, candidates))
        return MOST;
    places.assign(m_nMost + 2, {});
    SRange range{m_nLeast, std::min(m_nMost, text.size())};
    for (size_t n = range.nFirst; n <= range.nLast; ++n)
        places[n] = Both(Column(BEGINS)[n], candidates);
    size_t nBest = MOST;
    TakeMatching(range, places, nBest);
    for (size_t n = 0; n < text.size() && range.Narrow(places); ++n) {
        range.nFirst -= range.nFirst > 0 ? 1 : 0;
        range.nLast = std::min(range.nLast, text.size() - n - 1); // what needs more than the text has left is lost
        Advance(places.data(), range.nFirst, range.nLast, Column(UpperColumn(text[n])), Column(LowerColumn(text[n])),
                Column(STARS));
        if (n % PAUSE == PAUSE - 1)
            LeaveEarlierPlaces(range, places);
        TakeMatching(range, places, nBest);
    }
    return std::min(nBest, FirstOf(places[0]));
}

/// Leaves the candidates of which the characters behind the last "*" are those at the end of the text.
bool CPatternBlock::EndAlike(std::string_view text, Bits& candidates) const
{
    Bits compared = candidates;
    for (size_t n = 0; n < text.size(); ++n) {
        compared = Without(compared, Column(STARS)[n]);
        if (IsNone(compared))
            break;
        const char c = text[text.size() - 1 - n];
        const Bits alike = Both(Column(UpperColumn(c))[n + 1], Column(LowerColumn(c))[n + 1]);
        candidates = Without(candidates, Without(compared, alike));
        compared = Both(compared, alike);
    }
    return !IsNone(candidates);
}

/// A pattern that has come to its last "*" matches, as the rest of it is known to. Those behind it are of no interest.
void CPatternBlock::TakeMatching(SRange range, std::vector<Bits>& places, size_t& nBest) const
{
    size_t nFound = nBest;
    const size_t nLast = std::min(range.nLast, m_lastStars.nLast);
    for (size_t n = std::max(range.nFirst, m_lastStars.nFirst); n <= nLast; ++n)
        nFound = std::min(nFound, FirstOf(Both(places[n], Column(LAST_STARS)[n])));
    if (nFound == nBest)
        return;
    nBest = nFound;
    Bits before = {};
    for (size_t n = 0; n < nBest; ++n)
        Set(before, n);
    for (size_t n = range.nFirst; n <= range.nLast; ++n)
        places[n] = Both(places[n], before);
}

/// A pattern that has come to a "*" can do from there whatever it could do from an earlier place.
void CPatternBlock::LeaveEarlierPlaces(SRange range, std::vector<Bits>& places) const
{
    Bits ahead = {};
    for (size_t n = range.nFirst; n <= range.nLast; ++n) {
        places[n] = Without(places[n], ahead);
        for (size_t nWord = 0; nWord < WORDS; ++nWord)
            ahead[nWord] |= places[n][nWord] & Column(STARS)[n][nWord];
    }
}

bool CPatternBlock::SRange::Narrow(const std::vector<Bits>& places)
{
    while (nFirst <= nLast && IsNone(places[nFirst]))
        ++nFirst;
    if (nFirst > nLast)
        return false;
    while (IsNone(places[nLast]))
        --nLast;
    return true;
}
