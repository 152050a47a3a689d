#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

/// Patterns with "*" and "?", matched against a text all at once and without regard to ASCII case.
///
/// A tree of the patterns' characters, in which patterns that begin alike share their way. A text is followed along
/// all the ways that it fits so far, so that a search takes as long as what fits asks for, however many patterns there
/// are. Used by one thread at a time.
class CPatternTree
{
public:
    using Id = uint32_t; ///< what the owner calls a pattern

    void Add(std::string_view pattern, Id id);             ///< one pattern once
    std::vector<Id> Matching(std::string_view text) const; ///< the patterns that match, in no order

private:
    using Place = uint32_t;
    static constexpr Place ROOT = 0;
    static constexpr uint32_t NONE = UINT32_MAX;

    /// How far a text has come.
    struct SProgress
    {
        std::vector<Place> places; ///< behind the last character of the text
        std::vector<Place> stars;  ///< behind a "*": they stay, since it takes any rest of the text
        std::unordered_set<Place> starsSeen;
    };

    static uint64_t Way(Place from, char c) { return uint64_t{from} << 8 | static_cast<unsigned char>(c); }
    Place Next(Place from, char c) const;
    void Enter(Place place, SProgress& progress) const;
    void Advance(char c, SProgress& progress) const;

    std::unordered_map<uint64_t, Place> m_ways;
    std::vector<Id> m_patterns{NONE}; ///< by place: the pattern that ends there
};
