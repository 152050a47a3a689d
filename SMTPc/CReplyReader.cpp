#include "SMTPc/CReplyReader.h"

#include <algorithm>

namespace {

constexpr int LARGEST_CODE = 100'000'000; // longer numbers stop counting here

} // namespace

void CReplyReader::Clear() { *this = CReplyReader(); }

CReplyReader::EState CReplyReader::Take(std::string_view piece)
{
    m_nBytes += piece.size();
    if (m_nBytes > MOST_BYTES)
        return EState::TooLong;
    while (!piece.empty()) {
        const size_t nLength = std::min(piece.find_first_of("\r\n"), piece.size());
        for (char c : piece.substr(0, nLength)) {
            if (c != '\0')
                m_strLine += c;
        }
        if (nLength == piece.size()) {
            m_cLast = piece.back();
            break;
        }
        m_cLast = piece[nLength];
        if (EndLine() == EState::TooLong)
            return EState::TooLong;
        piece.remove_prefix(nLength + 1);
    }
    return IsLastLine() && Code() != 0 ? EState::Complete : EState::Incomplete;
}

CReplyReader::EState CReplyReader::TakeOne(std::string_view& piece)
{
    constexpr std::string_view ENDS = "\r\n";
    EState state = EState::Incomplete;
    while (!piece.empty() && state == EState::Incomplete) {
        const size_t nLength = std::min(piece.find_first_of(ENDS), piece.size() - 1) + 1;
        state = Take(piece.substr(0, nLength));
        piece.remove_prefix(nLength);
    }
    piece.remove_prefix(std::min(piece.find_first_not_of(ENDS), piece.size()));
    return state;
}

CReplyReader::EState CReplyReader::EndLine()
{
    if (m_strLine.empty())
        return EState::Incomplete;
    if (++m_nLines > MOST_LINES)
        return EState::TooLong;
    m_nLastLine = m_strText.size();
    m_strText += m_strLine;
    m_strText += '\n';
    m_strLine.clear();
    return EState::Incomplete;
}

std::string_view CReplyReader::LastLine() const
{
    return m_strLine.empty() ? std::string_view(m_strText).substr(m_nLastLine) : std::string_view(m_strLine);
}

bool CReplyReader::IsLastLine() const
{
    const std::string_view line = LastLine();
    return m_strLine.empty() && line.size() > CODE_LENGTH && line[CODE_LENGTH] != '-';
}

int CReplyReader::Code() const
{
    int iCode = 0;
    for (char c : m_strText) {
        if (c < '0' || c > '9' || iCode >= LARGEST_CODE)
            break;
        iCode = iCode * 10 + (c - '0');
    }
    return iCode;
}
