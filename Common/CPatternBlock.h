#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

/// Up to 256 patterns with "*" and "?", matched against a text side by side: each has a bit of its own.
///
/// A place is a number of characters that a pattern still needs; its bits tell which patterns the text read so far
/// leads there. A character of the text takes them all on by a few operations for each place where there are any. So
/// 256 patterns cost about what one does, at most the text's length times the longest pattern's. Takes four bytes for
/// each character of 256 patterns as long as the longest. Any thread may search.
class CPatternBlock
{
public:
    static constexpr size_t WORDS = 4;
    static constexpr size_t MOST = 64 * WORDS;
    using Bits = std::array<uint64_t, WORDS>; ///< the first pattern's is the lowest of the first word

    explicit CPatternBlock(std::span<const std::string_view> patterns); ///< in lower case; at most MOST

    /// The first of the candidates that matches a text in lower case; MOST: none. The places are the caller's memory to
    /// work in.
    size_t FindFirst(std::string_view text, Bits candidates, std::vector<Bits>& places) const;

private:
    /// Places, the last one included.
    struct SRange
    {
        size_t nFirst;
        size_t nLast;
        bool Narrow(const std::vector<Bits>& places); ///< to those where patterns are; false: there are none
    };

    Bits* Column(size_t nColumn) { return m_columns.data() + nColumn * (m_nMost + 2); }
    const Bits* Column(size_t nColumn) const { return m_columns.data() + nColumn * (m_nMost + 2); }
    void Enter(std::string_view pattern, size_t nPattern);
    bool EndAlike(std::string_view text, Bits& candidates) const;
    void TakeMatching(SRange range, std::vector<Bits>& places, size_t& nBest) const;
    void LeaveEarlierPlaces(SRange range, std::vector<Bits>& places) const;

    size_t m_nLeast = SIZE_MAX;         ///< characters that the shortest pattern needs
    size_t m_nMost = 0;                 ///< and the longest
    SRange m_lastStars = {SIZE_MAX, 0}; ///< where the patterns have their last "*"
    std::vector<Bits> m_columns;
};
