#pragma once

#include "Platform/IWaitable.h"

#include <cstdint>
#include <memory>

namespace Platform {

/// How long something may take, and what ends it sooner: a moment and a stop event. Whoever answers for the time of a
/// piece of work makes one, and hands it down to everything on the way that waits. A value; any thread, as long as
/// the event lives.
class CWaitLimit
{
public:
    CWaitLimit() = default;                                         ///< no limit at all
    explicit CWaitLimit(const IWaitable* pStop) : m_pStop(pStop) {} ///< none but the stop; null: no limit at all

    CWaitLimit For(uint64_t ui64Millis) const;    ///< that long from now under the same stop, whatever was left
    CWaitLimit AtMost(uint64_t ui64Millis) const; ///< what is left, but no longer than that from now
    /// The same, but a stop ends it, and what is made of it, only that long after the first wait has seen it.
    CWaitLimit EndingAfterStop(uint64_t ui64Millis) const;

    bool HasTimeLeft() const { return MillisLeft() > 0; }
    bool IsStopped() const; ///< costs a system call
    bool IsOver() const { return !HasTimeLeft() || IsStopped(); }
    uint64_t MillisLeft() const; ///< NO_LIMIT without one
    const IWaitable* Stop() const { return m_pStop; }
    bool EndsNow() const; ///< the stop, which has come

    static constexpr uint64_t NO_LIMIT = UINT64_MAX;

private:
    struct SLateStop;

    uint64_t m_ui64Deadline = NO_LIMIT; ///< as TickCount tells it
    const IWaitable* m_pStop = nullptr;
    std::shared_ptr<SLateStop> m_pLate; ///< null: a stop ends it at once
};

} // namespace Platform
