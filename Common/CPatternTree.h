#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Patterns with "*" and "?" in an order of preference, of which the best one that matches a text is looked for.
///
/// The tree of their characters, in which patterns that begin alike share their way, is implied by their alphabetical
/// order: a place in it is a range of patterns. Of the places that a text may lead to, the one with the best pattern is
/// looked at first, so that nothing is looked at that could not win, and none twice. Patterns that need a character
/// which the text has not are passed over together. Used by one thread at a time.
class CPatternTree
{
public:
    using Id = uint32_t; ///< what the owner calls a pattern
    static constexpr Id NONE = UINT32_MAX;
    struct SPattern
    {
        std::string_view text; ///< in lower case
        Id id;
    };

    CPatternTree() = default;
    explicit CPatternTree(const std::vector<SPattern>& patterns); ///< the best first; each text and id once

    Id FindBest(std::string_view text) const; ///< without regard to ASCII case; NONE when none matches
    void Remove(Id id);                       ///< it is found no more; any other id changes nothing

private:
    /// What is known of some patterns together.
    struct SBound
    {
        uint32_t nRank = NONE;        ///< of the best one
        uint64_t needed = UINT64_MAX; ///< the characters that all of them need, as Characters gives them
    };
    struct SPlace
    {
        uint32_t nFirst;
        uint32_t nBehind;
        uint32_t nDepth;     ///< how many characters of the patterns led here
        uint32_t nPosition;  ///< and how many of the text
        bool bStar = false;  ///< behind a "*", which may take more of the text
        bool bAlike = false; ///< all its patterns match the same
        uint32_t nRank = NONE;
        uint32_t nEnd = NONE; ///< behind a "*": the position from which another one goes on
    };
    struct SLeaf
    {
        std::string strText;
        uint32_t nRank;
    };
    class CSearch;

    static SBound Joined(const SBound& a, const SBound& b);
    static uint64_t Characters(std::string_view text);
    SBound BoundOf(uint32_t nFirst, uint32_t nBehind) const;
    SPlace Child(const SPlace& place, char c) const;

    std::string_view TextAt(uint32_t nLeaf) const { return m_leaves[nLeaf].strText; }
    uint32_t BehindEnded(const SPlace& place) const; ///< those of its patterns that are no longer than its depth

    std::vector<SLeaf> m_leaves;      ///< the patterns in alphabetical order
    std::vector<Id> m_idByRank;       ///< in the order of preference
    std::vector<uint32_t> m_leafById; ///< NONE: no pattern
    std::vector<SBound> m_bounds;     ///< a binary tree above the leaves, which are its second half
};
