#include "Inject/CInput.h"

#include "Inject/CRefusal.h"
#include "Platform/StandardInput.h"

#include <algorithm>

CInput::CInput(bool bDotEnds) : m_pBuffer(std::make_unique_for_overwrite<char[]>(BUFFER_SIZE)), m_bDotEnds(bDotEnds) {}

bool CInput::Next(std::string_view& piece)
{
    size_t nFeed = Buffered().find('\n');
    while (nFeed == std::string_view::npos && Fill())
        nFeed = Buffered().find('\n');
    piece = Buffered().substr(0, nFeed == std::string_view::npos ? nFeed : nFeed + 1);
    const bool bEnd = m_bDotEnds && m_bAtLineStart && (piece == ".\n" || piece == ".\r\n" || piece == ".");
    if (piece.empty() || bEnd) {
        m_nNext = m_nEnd = 0;
        m_bEnd = true;
        return false;
    }
    m_nNext += piece.size();
    m_bAtLineStart = piece.back() == '\n';
    return true;
}

/// False when there is no more, or no more room.
bool CInput::Fill()
{
    if (m_nNext > 0) {
        std::copy(m_pBuffer.get() + m_nNext, m_pBuffer.get() + m_nEnd, m_pBuffer.get());
        m_nEnd -= m_nNext;
        m_nNext = 0;
    }
    if (m_bEnd || m_nEnd == BUFFER_SIZE)
        return false;
    const int64_t iRead = Platform::ReadStandardInput(m_pBuffer.get() + m_nEnd, BUFFER_SIZE - m_nEnd);
    if (iRead < 0)
        throw CRefusal(EExit::Temporary, "the mail cannot be read from standard input");
    m_bEnd = iRead == 0;
    m_nEnd += static_cast<size_t>(iRead);
    return !m_bEnd;
}
