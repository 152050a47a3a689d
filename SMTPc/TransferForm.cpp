#include "SMTPc/TransferForm.h"

#include "Common/LineEndings.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

namespace {

constexpr char SOURCE_FILE[] = "SMTPc/TransferForm";
constexpr std::string_view END_OF_DATA = "\r\n.\r\n";
constexpr size_t NONE = std::string_view::npos;

/// Where the next line that begins with a dot starts, at the start of the text or behind the given position.
size_t NextDotLine(std::string_view text, size_t nFrom)
{
    if (nFrom == 0 && text.starts_with('.'))
        return 0;
    const size_t nBreak = text.find("\n.", nFrom);
    return nBreak == NONE ? NONE : nBreak + 1;
}

bool IsSingleDot(std::string_view text, size_t nDot) { return nDot + 1 == text.size() || text[nDot + 1] == '\r'; }

/// A part of the mail, with complete line ends only, and which of its dots are to be doubled.
class CSection
{
public:
    explicit CSection(std::string_view text) : m_text(text)
    {
        size_t nDots = 0;
        size_t nSingle = 0;
        for (size_t nDot = NextDotLine(text, 0); nDot != NONE; nDot = NextDotLine(text, nDot + 1)) {
            const bool bSingle = IsSingleDot(text, nDot);
            ++nDots;
            nSingle += bSingle;
            m_bAllDots = m_bAllDots || (!bSingle && text[nDot + 1] != '.');
        }
        m_nDoubled = m_bAllDots ? nDots : nSingle;
    }
    size_t Length() const { return m_text.size() + m_nDoubled; }
    char* Write(char* pOut) const
    {
        size_t nWritten = 0;
        for (size_t nDot = m_nDoubled == 0 ? NONE : NextDotLine(m_text, 0); nDot != NONE;
             nDot = NextDotLine(m_text, nDot + 1)) {
            if (!m_bAllDots && !IsSingleDot(m_text, nDot))
                continue;
            pOut = Copy(m_text.substr(nWritten, nDot - nWritten), pOut);
            *pOut++ = '.';
            nWritten = nDot;
        }
        return Copy(m_text.substr(nWritten), pOut);
    }
    static char* Copy(std::string_view text, char* pOut)
    {
        if (!text.empty())
            std::memcpy(pOut, text.data(), text.size());
        return pOut + text.size();
    }

private:
    std::string_view m_text;
    bool m_bAllDots = false;
    size_t m_nDoubled = 0;
};

void RemoveEndMarker(std::string_view& header, std::string_view& body)
{
    const size_t nOfBody = std::min(body.size(), END_OF_DATA.size());
    const size_t nOfHeader = END_OF_DATA.size() - nOfBody;
    if (!body.ends_with(END_OF_DATA.substr(nOfHeader)) || !header.ends_with(END_OF_DATA.substr(0, nOfHeader)))
        return;
    body.remove_suffix(nOfBody);
    header.remove_suffix(nOfHeader);
}

/// Without what could end a line, or the header block, early.
std::string WithoutBareEnds(std::string_view header)
{
    std::string strResult(header);
    for (size_t i = 0; i < strResult.size(); ++i) {
        if (strResult.compare(i, 2, "\r\n") == 0)
            ++i;
        else if (strResult[i] == '\r' || strResult[i] == '\n')
            strResult[i] = ' ';
    }
    return strResult;
}

} // namespace

Bex::CArray<char> TransferForm(std::string_view header, std::string_view body)
{
    RemoveEndMarker(header, body);
    const std::string strHeader = WithoutBareEnds(header);
    Bex::CArray<char> normalized;
    if (LineEndings::Normalize(body, normalized))
        body = normalized.View();
    const CSection sections[] = {CSection(strHeader), CSection(body)};
    const size_t nLength = sections[0].Length() + sections[1].Length() + END_OF_DATA.size();
    if (nLength > std::numeric_limits<uint32_t>::max())
        Bex::ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    Bex::CArray<char> payload;
    payload.SetSize(static_cast<uint32_t>(nLength));
    CSection::Copy(END_OF_DATA, sections[1].Write(sections[0].Write(payload.Data())));
    return payload;
}
