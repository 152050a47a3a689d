#include "Common/LineEndings.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace {

constexpr char SOURCE_FILE[] = "Common/LineEndings";

struct SCounts
{
    uint64_t nNul = 0;
    uint64_t nReturn = 0;
    uint64_t nFeed = 0;
    uint64_t nPair = 0; ///< CR LF

    uint64_t Bare() const { return nReturn - nPair + nFeed - nPair; }
};

// Short runs with byte-wide counters: the compiler turns the inner loop into vector instructions.
SCounts Count(std::string_view text)
{
    constexpr size_t RUN = 128;
    SCounts counts;
    size_t nLast = text.empty() ? 0 : text.size() - 1; // the last byte has no successor
    for (size_t nStart = 0; nStart < nLast; nStart += RUN) {
        const char* pText = text.data() + nStart;
        size_t nCount = std::min(RUN, nLast - nStart);
        uint8_t byNul = 0;
        uint8_t byReturn = 0;
        uint8_t byFeed = 0;
        uint8_t byPair = 0;
        for (size_t i = 0; i < nCount; ++i) {
            byNul = static_cast<uint8_t>(byNul + (pText[i] == '\0'));
            byReturn = static_cast<uint8_t>(byReturn + (pText[i] == '\r'));
            byFeed = static_cast<uint8_t>(byFeed + (pText[i] == '\n'));
            byPair = static_cast<uint8_t>(byPair + ((pText[i] == '\r') & (pText[i + 1] == '\n')));
        }
        counts.nNul += byNul;
        counts.nReturn += byReturn;
        counts.nFeed += byFeed;
        counts.nPair += byPair;
    }
    if (!text.empty()) {
        counts.nNul += text.back() == '\0';
        counts.nReturn += text.back() == '\r';
        counts.nFeed += text.back() == '\n';
    }
    return counts;
}

/// One line, up to and with its LF: the byte in front of it is no CR.
char* CopyLine(std::string_view line, char* pOut)
{
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        bool bBareReturn = c == '\r' && (i + 1 == line.size() || line[i + 1] != '\n');
        bool bBareFeed = c == '\n' && (i == 0 || line[i - 1] != '\r');
        if (bBareFeed)
            *pOut++ = '\r';
        if (c != '\0')
            *pOut++ = c;
        if (bBareReturn)
            *pOut++ = '\n';
    }
    return pOut;
}

} // namespace

/// The text is moved to the end of its new place and read from there: what is written never overtakes what is read,
/// which is ahead by as many bytes as there are breaks to be completed.
void LineEndings::Normalize(Bex::CArray<char>& text)
{
    const SCounts counts = Count(text.View());
    if (counts.nNul == 0 && counts.Bare() == 0)
        return;
    const uint32_t nOld = text.Size();
    const uint64_t nPlace = nOld + counts.Bare();
    if (nPlace > UINT32_MAX)
        Bex::ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    text.SetSize(static_cast<uint32_t>(nPlace));
    char* pOut = text.Data();
    std::memmove(pOut + counts.Bare(), pOut, nOld);
    const std::string_view old(pOut + counts.Bare(), nOld);
    bool bPlain = counts.nNul == 0 && counts.nReturn == counts.nPair; // only LFs are bare
    for (size_t nStart = 0; nStart < old.size();) {
        size_t nEnd = std::min(old.find('\n', nStart), old.size() - 1) + 1;
        std::string_view line = old.substr(nStart, nEnd - nStart);
        if (bPlain && line.back() == '\n' && (line.size() == 1 || line[line.size() - 2] != '\r')) {
            pOut = std::copy(line.begin(), line.end() - 1, pOut);
            *pOut++ = '\r';
            *pOut++ = '\n';
        } else if (bPlain) {
            pOut = std::copy(line.begin(), line.end(), pOut);
        } else {
            pOut = CopyLine(line, pOut);
        }
        nStart = nEnd;
    }
    text.SetSize(static_cast<uint32_t>(pOut - text.Data()));
}
