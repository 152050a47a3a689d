#include "Bex/CFileInputStream.h"

#include <string_view>

namespace Bex {

namespace {

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
        m_file.Consume(bEnded ? part.size() + 1 : part.size());
        if (bEnded)
            break;
    }
    strLine = UpToNul(m_strCollected);
    return true;
}

} // namespace Bex
