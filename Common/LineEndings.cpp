#include "Common/LineEndings.h"

#include <algorithm>
#include <cstdint>

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

bool LineEndings::Normalize(std::string_view text, Bex::CArray<char>& result)
{
    SCounts counts = Count(text);
    if (counts.nNul == 0 && counts.Bare() == 0)
        return false;
    uint64_t nSize = text.size() - counts.nNul + counts.Bare();
    if (nSize > UINT32_MAX)
        Bex::ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    result.SetSize(static_cast<uint32_t>(nSize));
    bool bPlain = counts.nNul == 0 && counts.nReturn == counts.nPair; // only LFs are bare
    char* pOut = result.Data();
    for (size_t nStart = 0; nStart < text.size();) {
        size_t nEnd = std::min(text.find('\n', nStart), text.size() - 1) + 1;
        std::string_view line = text.substr(nStart, nEnd - nStart);
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
    return true;
}
