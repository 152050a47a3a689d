#pragma once

#include "Common/CPatternBlock.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// Patterns with "*" and "?" in an order of preference, of which the best one that matches a text is looked for.
///
/// Each is filed under the rarest short piece of text that it needs. Only those whose piece the text has are tried, the
/// best first and many at once. However alike they are and whatever the text, a search costs no more than trying all of
/// them in this way, and takes a bit of memory for each. Searches may come from any thread while nobody removes.
class CPatternSet
{
public:
    using Id = uint32_t; ///< what the owner calls a pattern
    static constexpr Id NONE = UINT32_MAX;
    struct SPattern
    {
        std::string_view text; ///< in lower case
        Id id;
    };

    CPatternSet() = default;
    explicit CPatternSet(const std::vector<SPattern>& patterns); ///< the best and longest first; each id once

    Id FindBest(std::string_view text) const; ///< without regard to ASCII case; NONE when none matches
    void Remove(Id id);                       ///< it is found no more; any other id changes nothing

private:
    using Piece = uint32_t; ///< up to four characters
    struct SFiled
    {
        uint32_t nWord;
        uint64_t bits; ///< the patterns of this word
    };
    struct SLong
    {
        std::string strText;
        Id id;
    };

    void File(const std::vector<std::string_view>& texts);
    std::vector<uint64_t> Candidates(std::string_view text) const;

    std::vector<SLong> m_long;        ///< too long for a block: tried first, one by one
    std::vector<Id> m_ids;            ///< of the others, the best first, as are the bits of blocks and words
    std::vector<uint32_t> m_rankById; ///< the place in that order; NONE: no such pattern
    std::vector<CPatternBlock> m_blocks;
    std::vector<uint64_t> m_left;    ///< those that were not removed
    std::vector<uint64_t> m_unfiled; ///< those that need no piece
    std::unordered_map<Piece, std::vector<SFiled>> m_filed;
};
