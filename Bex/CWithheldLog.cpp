#include "Bex/CWithheldLog.h"

#include <utility>

namespace Bex {

namespace {

constexpr size_t MOST_LINES = 1000;

thread_local CWithheldLog* t_pWithheld = nullptr;

} // namespace

CWithheldLog::CWithheldLog() { t_pWithheld = this; }

CWithheldLog::~CWithheldLog() { t_pWithheld = nullptr; }

bool CWithheldLog::Take(CLogPointer& log, int iLevel, const char* pszText)
{
    if (t_pWithheld == nullptr)
        return false;
    if (t_pWithheld->m_lines.size() < MOST_LINES)
        t_pWithheld->m_lines.push_back({&log, iLevel, pszText});
    return true;
}

void CWithheldLog::Tell()
{
    t_pWithheld = nullptr;
    for (const SLine& line : std::exchange(m_lines, {})) {
        if (const auto pDestination = line.pLog->Get())
            pDestination->Write(line.iLevel, line.strText.c_str(), 0);
    }
}

} // namespace Bex
