#include "Bex/TextFunctions.h"

#include <algorithm>

namespace Bex {

std::string_view TrimmedView(std::string_view text)
{
    size_t nFirst = 0;
    size_t nEnd = text.size();
    while (nFirst < nEnd && IsSpace(text[nFirst]))
        ++nFirst;
    while (nEnd > nFirst && IsSpace(text[nEnd - 1]))
        --nEnd;
    return text.substr(nFirst, nEnd - nFirst);
}

bool EqualNoCase(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return LowerAscii(x) == LowerAscii(y); });
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix)
{
    return EqualNoCase(text.substr(0, prefix.size()), prefix);
}

bool IsUtf8(std::string_view text)
{
    for (size_t i = 0; i < text.size();) {
        const auto cFirst = static_cast<uint8_t>(text[i++]);
        const size_t nMore = cFirst < 0x80       ? 0
                             : cFirst >> 5 == 6  ? 1
                             : cFirst >> 4 == 14 ? 2
                             : cFirst >> 3 == 30 ? 3
                                                 : 4;
        if (nMore > 3 || nMore > text.size() - i)
            return false;
        uint32_t dwCode = nMore == 0 ? cFirst : cFirst & (0x3Fu >> nMore);
        for (const size_t nEnd = i + nMore; i < nEnd; ++i) {
            const auto cNext = static_cast<uint8_t>(text[i]);
            if (cNext >> 6 != 2)
                return false;
            dwCode = dwCode << 6 | (cNext & 0x3Fu);
        }
        constexpr uint32_t LEAST[] = {0, 0x80, 0x800, 0x10000};
        if (dwCode < LEAST[nMore] || dwCode > 0x10FFFF || (dwCode >= 0xD800 && dwCode < 0xE000))
            return false;
    }
    return true;
}

std::string_view TakeLine(std::string_view& text)
{
    const size_t nEnd = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, nEnd);
    text.remove_prefix(std::min(nEnd + 1, text.size()));
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    return line;
}

void Tokenize(std::string_view text, std::string_view separators, CList<CSimpleString>& list, bool bTrim)
{
    size_t nStart = 0;
    while (nStart < text.size()) {
        size_t nEnd = std::min(text.find_first_of(separators, nStart), text.size());
        std::string_view piece = text.substr(nStart, nEnd - nStart);
        if (!piece.empty())
            list.Append(CSimpleString(bTrim ? TrimmedView(piece) : piece));
        nStart = nEnd + 1;
    }
}

void MaskControls(char* pBegin, char* pEnd)
{
    const auto IsControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    std::replace_if(pBegin, pEnd, IsControl, '?');
}

std::string_view Unquote(std::string_view text)
{
    bool bQuoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    return bQuoted ? text.substr(1, text.size() - 2) : text;
}

namespace {

// Only the last "*" met ever needs to be tried again: an earlier one could not match more than it already has.
template <class TEqual>
bool MatchPattern(std::string_view text, std::string_view pattern, TEqual equal)
{
    if (text.find_first_of("*?") != std::string_view::npos)
        return false;
    size_t nText = 0;
    size_t nPattern = 0;
    size_t nStar = std::string_view::npos;
    size_t nRetry = 0;
    while (nText < text.size()) {
        if (nPattern < pattern.size() && pattern[nPattern] == '*') {
            nStar = nPattern++;
            nRetry = nText;
        } else if (nPattern < pattern.size() && (pattern[nPattern] == '?' || equal(text[nText], pattern[nPattern]))) {
            ++nText;
            ++nPattern;
        } else if (nStar != std::string_view::npos) {
            nPattern = nStar + 1;
            nText = ++nRetry;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', nPattern) == std::string_view::npos;
}

} // namespace

bool WildcardMatchCase(std::string_view text, std::string_view pattern)
{
    return MatchPattern(text, pattern, [](char a, char b) { return a == b; });
}

bool WildcardMatch(std::string_view text, std::string_view pattern)
{
    return MatchPattern(text, pattern, [](char a, char b) { return LowerAscii(a) == LowerAscii(b); });
}

CSimpleString AccountLockName(std::string_view path)
{
    constexpr size_t LONGEST = 259;
    CSimpleString strName(path.size() > LONGEST ? path.substr(path.size() - LONGEST) : path);
    strName.ReplaceAll("\\", "/");
    return strName;
}

CSimpleString JoinPath(std::string_view directory, std::string_view name)
{
    bool bAbsolute = (!name.empty() && name[0] == '/') || (name.size() > 1 && name[1] == ':');
    return bAbsolute ? CSimpleString(name) : PathBelow(directory, name);
}

CSimpleString PathBelow(std::string_view directory, std::string_view name)
{
    CSimpleString strPath;
    strPath.Reserve(static_cast<uint32_t>(directory.size() + name.size() + 1));
    strPath.Append(directory);
    if (!directory.empty() && !directory.ends_with('/'))
        strPath.Append('/');
    strPath.Append(name);
    return strPath;
}

std::string_view NameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); } // npos is -1

} // namespace Bex
