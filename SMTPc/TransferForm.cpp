#include "SMTPc/TransferForm.h"

#include "Common/LineEndings.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

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

/// Which dots at the beginning of a line of a text with complete line ends are to be doubled.
class CDots
{
public:
    explicit CDots(std::string_view text)
    {
        size_t nDots = 0;
        size_t nSingle = 0;
        for (size_t nDot = NextDotLine(text, 0); nDot != NONE; nDot = NextDotLine(text, nDot + 1)) {
            const bool bSingle = IsSingleDot(text, nDot);
            ++nDots;
            nSingle += bSingle;
            m_bAll = m_bAll || (!bSingle && text[nDot + 1] != '.');
        }
        m_nDoubled = m_bAll ? nDots : nSingle;
    }
    size_t Doubled() const { return m_nDoubled; }
    /// The text may stand behind the place that it is written to, by as many bytes as dots are doubled.
    char* Write(std::string_view text, char* pOut) const
    {
        size_t nWritten = 0;
        for (size_t nDot = m_nDoubled == 0 ? NONE : NextDotLine(text, 0); nDot != NONE;
             nDot = NextDotLine(text, nDot + 1)) {
            if (!m_bAll && !IsSingleDot(text, nDot))
                continue;
            pOut = Copy(text.substr(nWritten, nDot - nWritten), pOut);
            *pOut++ = '.';
            nWritten = nDot;
        }
        return Copy(text.substr(nWritten), pOut);
    }
    static char* Copy(std::string_view text, char* pOut)
    {
        if (!text.empty())
            std::memmove(pOut, text.data(), text.size());
        return pOut + text.size();
    }

private:
    bool m_bAll = false;
    size_t m_nDoubled = 0;
};

void RemoveEndMarker(std::string& strHeader, Bex::CArray<char>& body)
{
    const size_t nOfBody = std::min<size_t>(body.Size(), END_OF_DATA.size());
    const size_t nOfHeader = END_OF_DATA.size() - nOfBody;
    if (!body.View().ends_with(END_OF_DATA.substr(nOfHeader)) || !strHeader.ends_with(END_OF_DATA.substr(0, nOfHeader)))
        return;
    body.SetSize(body.Size() - static_cast<uint32_t>(nOfBody));
    strHeader.resize(strHeader.size() - nOfHeader);
}

/// What could end a line, or the header block, early becomes spaces.
void BlankBareEnds(std::string& strHeader)
{
    for (size_t i = 0; i < strHeader.size(); ++i) {
        if (strHeader.compare(i, 2, "\r\n") == 0)
            ++i;
        else if (strHeader[i] == '\r' || strHeader[i] == '\n')
            strHeader[i] = ' ';
    }
}

} // namespace

Bex::CArray<char> TransferForm(std::string strHeader, Bex::CArray<char> body)
{
    RemoveEndMarker(strHeader, body);
    BlankBareEnds(strHeader);
    LineEndings::Normalize(body);
    const CDots dotsOfHeader(strHeader);
    const CDots dotsOfBody(body.View());
    const size_t nBody = body.Size();
    const size_t nBefore = strHeader.size() + dotsOfHeader.Doubled() + dotsOfBody.Doubled();
    const size_t nLength = nBefore + nBody + END_OF_DATA.size();
    if (nLength > std::numeric_limits<uint32_t>::max())
        Bex::ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    body.SetSize(static_cast<uint32_t>(nLength));
    char* const pPayload = body.Data();
    const std::string_view text(pPayload + nBefore, nBody);
    CDots::Copy({pPayload, nBody}, pPayload + nBefore);
    CDots::Copy(END_OF_DATA, dotsOfBody.Write(text, dotsOfHeader.Write(strHeader, pPayload)));
    return body;
}
