#include "Platform/CWaitLimit.h"

#include "Platform/Clock.h"

#include <algorithm>

namespace Platform {

CWaitLimit CWaitLimit::For(uint64_t ui64Millis) const
{
    CWaitLimit limit(m_pStop);
    const uint64_t ui64Now = TickCount();
    limit.m_ui64Deadline = ui64Now + std::min(ui64Millis, NO_LIMIT - ui64Now);
    return limit;
}

CWaitLimit CWaitLimit::AtMost(uint64_t ui64Millis) const
{
    CWaitLimit limit = For(ui64Millis);
    limit.m_ui64Deadline = std::min(limit.m_ui64Deadline, m_ui64Deadline);
    return limit;
}

bool CWaitLimit::IsStopped() const { return m_pStop != nullptr && WaitAny({m_pStop}, 0) == EWaitResult::Signalled; }

uint64_t CWaitLimit::MillisLeft() const
{
    return m_ui64Deadline == NO_LIMIT ? NO_LIMIT : m_ui64Deadline - std::min(m_ui64Deadline, TickCount());
}

} // namespace Platform
