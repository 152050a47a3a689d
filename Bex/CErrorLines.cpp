#include "Bex/CErrorLines.h"

#include <utility>

namespace Bex {

namespace {

thread_local CErrorLines* t_pInnermost = nullptr;

} // namespace

CErrorLines::CErrorLines() : m_pOuter(std::exchange(t_pInnermost, this)) { m_strText.reserve(LONGEST); }

CErrorLines::~CErrorLines() { t_pInnermost = m_pOuter; }

void CErrorLines::Note(std::string_view line)
{
    if (t_pInnermost == nullptr)
        return;
    std::string& strText = t_pInnermost->m_strText; // has the room
    const std::string_view separator = strText.empty() ? "" : "; ";
    if (line.ends_with('\n'))
        line.remove_suffix(1);
    if (strText.size() + separator.size() + line.size() <= LONGEST)
        strText.append(separator).append(line);
    else if (strText.empty())
        strText = line.substr(0, LONGEST);
}

} // namespace Bex
