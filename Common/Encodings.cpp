#include "Common/Encodings.h"

#include "Bex/TextFunctions.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Common/Encodings";
constexpr std::string_view ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char HEX_DIGITS[] = "0123456789abcdef";
constexpr uint8_t ALL_BITS = 63;     ///< what a character outside the alphabet counts as
constexpr uint8_t SPACE = 64;        ///< marks a character to skip
constexpr ptrdiff_t GROUP_BYTES = 3; ///< that four characters stand for

constexpr std::array<uint8_t, 256> MakeSextets()
{
    std::array<uint8_t, 256> sextets{};
    for (size_t i = 0; i < sextets.size(); ++i)
        sextets[i] = Bex::IsSpace(static_cast<char>(i)) ? SPACE : ALL_BITS;
    for (size_t i = 0; i < ALPHABET.size(); ++i)
        sextets[static_cast<uint8_t>(ALPHABET[i])] = static_cast<uint8_t>(i);
    return sextets;
}
constexpr std::array<uint8_t, 256> SEXTETS = MakeSextets();

uint32_t Size32(uint64_t nSize)
{
    if (nSize >= Bex::CSimpleString::ALL)
        Bex::ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    return static_cast<uint32_t>(nSize);
}

std::string_view UpToNul(std::string_view text) { return text.substr(0, text.find('\0')); }

/// Takes the next four characters that are no white space from the text. Gives their count.
size_t TakeGroup(std::string_view& text, std::array<char, 4>& group)
{
    size_t nRead = 0;
    size_t nNext = 0;
    while (nRead < group.size() && nNext < text.size()) {
        char c = text[nNext++];
        if (SEXTETS[static_cast<uint8_t>(c)] != SPACE)
            group[nRead++] = c;
    }
    text.remove_prefix(nNext);
    return nRead;
}

char* DecodeGroup(const std::array<char, 4>& group, char* pOut)
{
    uint32_t dwBits = 0;
    for (char c : group)
        dwBits = dwBits << 6 | SEXTETS[static_cast<uint8_t>(c)];
    *pOut++ = static_cast<char>(dwBits >> 16);
    if (group[2] != '=') {
        *pOut++ = static_cast<char>(dwBits >> 8);
        if (group[3] != '=')
            *pOut++ = static_cast<char>(dwBits);
    }
    return pOut;
}

int HexValue(char c) ///< -1 for what is no digit
{
    if (c >= '0' && c <= '9')
        return c - '0';
    c = Bex::LowerAscii(c);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// The length of the soft line break at the start of the text; 0 when there is none.
size_t SoftBreakLength(std::string_view text)
{
    if (text.size() < 2 || (text[1] != '\r' && text[1] != '\n'))
        return 0;
    return text.size() > 2 && text[2] == '\n' ? 3 : 2;
}

} // namespace

Bex::CArray<char> Base64Encode(const void* pBytes, uint32_t nLength)
{
    const uint8_t* pNext = static_cast<const uint8_t*>(pBytes);
    Bex::CArray<char> result;
    result.SetSize(Size32((uint64_t{nLength} + 2) / 3 * 4), Size32(uint64_t{nLength} * 4 / 3 + 2));
    char* pOut = result.Data();
    for (uint32_t nLeft = nLength; nLeft > 0;) {
        uint32_t nTaken = std::min(nLeft, 3u);
        uint32_t dwBits = uint32_t{pNext[0]} << 16;
        if (nTaken > 1)
            dwBits |= uint32_t{pNext[1]} << 8;
        if (nTaken > 2)
            dwBits |= pNext[2];
        *pOut++ = ALPHABET[dwBits >> 18];
        *pOut++ = ALPHABET[dwBits >> 12 & 63];
        *pOut++ = nTaken > 1 ? ALPHABET[dwBits >> 6 & 63] : '=';
        *pOut++ = nTaken > 2 ? ALPHABET[dwBits & 63] : '=';
        pNext += nTaken;
        nLeft -= nTaken;
    }
    return result;
}

Bex::CSimpleString Base64Encode(const Bex::CSimpleString& strText)
{
    std::string_view text = UpToNul(strText.View());
    return Bex::CSimpleString(Base64Encode(text.data(), static_cast<uint32_t>(text.size())).View());
}

Bex::CArray<char> Base64Decode(std::string_view text)
{
    text = UpToNul(text);
    Bex::CArray<char> decoded;
    decoded.SetSize(Size32(uint64_t{text.size()} / 4 * 3 + GROUP_BYTES));
    const char* pEnd = Base64Decode(text, decoded.Data(), decoded.Data() + decoded.Size());
    decoded.SetSize(static_cast<uint32_t>(pEnd - decoded.Data()));
    return decoded;
}

char* Base64Decode(std::string_view& text, char* pOut, const char* pEnd)
{
    std::array<char, 4> group{};
    while (pEnd - pOut >= GROUP_BYTES && !text.empty()) {
        const size_t nRead = TakeGroup(text, group);
        if (nRead == group.size()) {
            char* const pGroup = std::exchange(pOut, DecodeGroup(group, pOut));
            if (char* const pNul = std::find(pGroup, pOut, '\0'); pNul != pOut) {
                text = {};
                return pNul;
            }
        } else if (nRead > 0) {
            std::fputs("Premature EOF while decoding Base64-String!\n", stderr);
        }
    }
    return pOut;
}

Bex::CArray<char> QuotedPrintableDecode(std::string_view text)
{
    text = UpToNul(text);
    Bex::CArray<char> decoded;
    decoded.SetSize(Size32(text.size()));
    const char* pEnd = QuotedPrintableDecode(text, decoded.Data(), decoded.Data() + decoded.Size());
    decoded.SetSize(static_cast<uint32_t>(pEnd - decoded.Data()));
    return decoded;
}

char* QuotedPrintableDecode(std::string_view& text, char* pOut, const char* pEnd)
{
    while (!text.empty() && pOut < pEnd) {
        const std::string_view fitting = text.substr(0, static_cast<size_t>(pEnd - pOut));
        const size_t nPlain = std::min(fitting.find('='), fitting.size());
        pOut = std::copy_n(text.data(), nPlain, pOut);
        text.remove_prefix(nPlain);
        if (nPlain == fitting.size())
            continue;
        if (size_t nBreak = SoftBreakLength(text); nBreak > 0) {
            text.remove_prefix(nBreak);
            continue;
        }
        if (text.size() < 3) { // an escape that the text's end cuts off
            text = {};
            break;
        }
        int iHigh = HexValue(text[1]);
        int iLow = HexValue(text[2]);
        // A bad digit is -1: all bits set in its own nibble and in those above.
        char c = static_cast<char>(iHigh * 16 | iLow);
        if (c != '\0')
            *pOut++ = c;
        text.remove_prefix(3);
    }
    return pOut;
}

Bex::CSimpleString XtextEncode(std::string_view text)
{
    text = UpToNul(text);
    std::string strEncoded;
    strEncoded.reserve(text.size() * 3);
    for (char c : text) {
        if (c >= '!' && c <= '~' && c != '+' && c != '=') {
            strEncoded += c;
            continue;
        }
        strEncoded += '+';
        strEncoded += HEX_DIGITS[static_cast<uint8_t>(c) >> 4];
        strEncoded += HEX_DIGITS[static_cast<uint8_t>(c) & 15];
    }
    return Bex::CSimpleString(std::string_view(strEncoded));
}

Bex::CSimpleString HexText(const uint8_t* pBytes, uint32_t nCount)
{
    std::string strText;
    strText.reserve(size_t{nCount} * 2);
    for (uint32_t i = 0; i < nCount; ++i) {
        strText += HEX_DIGITS[pBytes[i] >> 4];
        strText += HEX_DIGITS[pBytes[i] & 15];
    }
    return Bex::CSimpleString(std::string_view(strText));
}
