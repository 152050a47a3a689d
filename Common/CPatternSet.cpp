#include "Common/CPatternSet.h"

#include "Bex/TextFunctions.h"

#include <algorithm>
#include <bit>
#include <optional>
#include <span>
#include <string>

namespace {

using Piece = uint32_t;

constexpr std::string_view WILDCARDS = "*?";
constexpr size_t PIECE_LENGTH = 4;
constexpr size_t LONGEST_IN_BLOCK = 4096; ///< as a block takes memory for 256 patterns of the length of its longest
constexpr size_t WORD = 64;

Piece Longer(Piece piece, char c) { return piece << 8 | static_cast<unsigned char>(c); }

/// All pieces of a text, each once.
std::vector<Piece> PiecesOf(std::string_view text)
{
    std::vector<Piece> pieces;
    for (size_t nFirst = 0; nFirst < text.size(); ++nFirst) {
        Piece piece = 0;
        for (const char c : text.substr(nFirst, PIECE_LENGTH))
            pieces.push_back(piece = Longer(piece, c));
    }
    std::ranges::sort(pieces);
    pieces.erase(std::unique(pieces.begin(), pieces.end()), pieces.end());
    return pieces;
}

/// The pieces that a pattern needs; not those that are part of another.
template <class TUse>
void ForEachPiece(std::string_view pattern, TUse use)
{
    for (size_t nFirst = 0; (nFirst = pattern.find_first_not_of(WILDCARDS, nFirst)) != pattern.npos;) {
        const size_t nBehind = std::min(pattern.find_first_of(WILDCARDS, nFirst), pattern.size());
        const size_t nLength = std::min(nBehind - nFirst, PIECE_LENGTH);
        for (; nFirst + nLength <= nBehind; ++nFirst) {
            Piece piece = 0;
            for (const char c : pattern.substr(nFirst, nLength))
                piece = Longer(piece, c);
            use(piece);
        }
        nFirst = nBehind;
    }
}

/// How often pieces occur in patterns. Some share a counter: the memory depends on the number of patterns alone.
class CPieceCounts
{
public:
    explicit CPieceCounts(const std::vector<std::string_view>& patterns)
        : m_counts(std::bit_ceil(COUNTERS_PER_PATTERN * patterns.size() + 1))
    {
        for (const std::string_view pattern : patterns)
            ForEachPiece(pattern, [this](Piece piece) { ++m_counts[Counter(piece)]; });
    }
    std::optional<Piece> Rarest(std::string_view pattern) const
    {
        std::optional<Piece> rarest;
        ForEachPiece(pattern, [&](Piece piece) {
            if (!rarest || m_counts[Counter(piece)] < m_counts[Counter(*rarest)])
                rarest = piece;
        });
        return rarest;
    }

private:
    static constexpr size_t COUNTERS_PER_PATTERN = 8;

    size_t Counter(Piece piece) const
    {
        constexpr uint64_t GOLDEN_RATIO = 0x9E3779B97F4A7C15;
        return (piece * GOLDEN_RATIO >> 32) & (m_counts.size() - 1);
    }

    std::vector<uint32_t> m_counts;
};

} // namespace

CPatternSet::CPatternSet(const std::vector<SPattern>& patterns)
{
    std::vector<std::string_view> texts;
    for (const SPattern& pattern : patterns) {
        if (pattern.text.size() > LONGEST_IN_BLOCK) {
            m_long.push_back({std::string(pattern.text), pattern.id});
            continue;
        }
        m_rankById.resize(std::max<size_t>(m_rankById.size(), pattern.id + size_t{1}), NONE);
        m_rankById[pattern.id] = static_cast<uint32_t>(m_ids.size());
        m_ids.push_back(pattern.id);
        texts.push_back(pattern.text);
    }
    const std::span<const std::string_view> all(texts);
    for (size_t n = 0; n < all.size(); n += CPatternBlock::MOST)
        m_blocks.emplace_back(all.subspan(n, std::min(CPatternBlock::MOST, all.size() - n)));
    m_left.assign(m_blocks.size() * CPatternBlock::WORDS, ~uint64_t{0});
    File(texts);
}

void CPatternSet::File(const std::vector<std::string_view>& texts)
{
    const CPieceCounts counts(texts);
    m_unfiled.resize(m_left.size());
    for (size_t nRank = 0; nRank < texts.size(); ++nRank) {
        const auto nWord = static_cast<uint32_t>(nRank / WORD);
        const uint64_t bit = uint64_t{1} << nRank % WORD;
        const std::optional<Piece> piece = counts.Rarest(texts[nRank]);
        if (!piece) {
            m_unfiled[nWord] |= bit;
            continue;
        }
        std::vector<SFiled>& filed = m_filed[*piece];
        if (filed.empty() || filed.back().nWord != nWord)
            filed.push_back({nWord, 0});
        filed.back().bits |= bit;
    }
}

std::vector<uint64_t> CPatternSet::Candidates(std::string_view text) const
{
    std::vector<uint64_t> candidates = m_unfiled;
    for (const Piece piece : PiecesOf(text)) {
        const auto found = m_filed.find(piece);
        if (found == m_filed.end())
            continue;
        for (const SFiled& filed : found->second)
            candidates[filed.nWord] |= filed.bits;
    }
    return candidates;
}

CPatternSet::Id CPatternSet::FindBest(std::string_view text) const
{
    std::string strText(text);
    std::ranges::transform(strText, strText.begin(), Bex::LowerAscii);
    for (const SLong& pattern : m_long) {
        if (Bex::WildcardMatch(strText, pattern.strText))
            return pattern.id;
    }
    if (m_blocks.empty())
        return NONE;
    const std::vector<uint64_t> candidates = Candidates(strText);
    std::vector<CPatternBlock::Bits> places;
    for (size_t nBlock = 0; nBlock < m_blocks.size(); ++nBlock) {
        CPatternBlock::Bits tried;
        for (size_t n = 0; n < tried.size(); ++n)
            tried[n] = candidates[nBlock * tried.size() + n] & m_left[nBlock * tried.size() + n];
        const size_t nFirst = m_blocks[nBlock].FindFirst(strText, tried, places);
        if (nFirst != CPatternBlock::MOST)
            return m_ids[nBlock * CPatternBlock::MOST + nFirst];
    }
    return NONE;
}

void CPatternSet::Remove(Id id)
{
    std::erase_if(m_long, [id](const SLong& pattern) { return pattern.id == id; });
    if (id < m_rankById.size() && m_rankById[id] != NONE)
        m_left[m_rankById[id] / WORD] &= ~(uint64_t{1} << m_rankById[id] % WORD);
}
