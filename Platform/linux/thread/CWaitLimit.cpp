#include "Platform/CWaitLimit.h"

#include "Platform/Clock.h"

#include <algorithm>
#include <atomic>

namespace Platform {

struct CWaitLimit::SLateStop
{
    explicit SLateStop(uint64_t ui64AfterIt) : ui64Millis(ui64AfterIt) {}

    const uint64_t ui64Millis;
    std::atomic<uint64_t> ui64End = NO_LIMIT; ///< once the stop has been seen
};

CWaitLimit CWaitLimit::For(uint64_t ui64Millis) const
{
    CWaitLimit limit(*this);
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

CWaitLimit CWaitLimit::EndingAfterStop(uint64_t ui64Millis) const
{
    CWaitLimit limit(*this);
    limit.m_pLate = std::make_shared<SLateStop>(ui64Millis);
    return limit;
}

bool CWaitLimit::EndsNow() const
{
    if (!m_pLate)
        return true;
    uint64_t ui64Unseen = NO_LIMIT;
    m_pLate->ui64End.compare_exchange_strong(ui64Unseen, TickCount() + m_pLate->ui64Millis);
    return !HasTimeLeft();
}

bool CWaitLimit::IsStopped() const
{
    return m_pStop != nullptr && WaitAny({m_pStop}, 0) == EWaitResult::Signalled && EndsNow();
}

uint64_t CWaitLimit::MillisLeft() const
{
    const uint64_t ui64End = m_pLate ? std::min<uint64_t>(m_pLate->ui64End, m_ui64Deadline) : m_ui64Deadline;
    return ui64End == NO_LIMIT ? NO_LIMIT : ui64End - std::min(ui64End, TickCount());
}

} // namespace Platform
