#include "Bex/CFileInputStream.h"

#include "Bex/CFileException.h"

#include <string_view>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CFileInputStream";

/// Appends the text without its CRs.
void Collect(std::string& strLine, std::string_view text)
{
    while (!text.empty()) {
        const std::string_view part = text.substr(0, text.find('\r'));
        strLine.append(part);
        text.remove_prefix(part.size() < text.size() ? part.size() + 1 : part.size());
    }
}

std::string_view UpToNul(std::string_view text) { return text.substr(0, text.find('\0')); }

} // namespace

bool CFileInputStream::ReadLine(CSimpleString& strLine)
{
    if (!m_file.IsText())
        return false;
    std::string_view ready = m_file.Buffered();
    if (ready.empty())
        return false;
    m_strCollected.clear();
    for (; !ready.empty(); ready = m_file.Buffered()) {
        const std::string_view part = ready.substr(0, ready.find('\n'));
        const bool bEnded = part.size() < ready.size();
        Collect(m_strCollected, part);
        Take(bEnded ? part.size() + 1 : part.size());
        if (bEnded)
            break;
    }
    strLine = UpToNul(m_strCollected);
    return true;
}

void CFileInputStream::Take(size_t nBytes)
{
    if (nBytes > m_nLeft)
        ThrowFileException(SOURCE_FILE, __LINE__, Platform::LIB_TOO_BIG, Platform::SYS_FILE_TOO_LARGE);
    m_nLeft -= nBytes;
    m_file.Consume(nBytes);
}

} // namespace Bex
