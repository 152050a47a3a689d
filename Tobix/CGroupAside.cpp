#include "Tobix/CGroupAside.h"

#include "Bex/CAbandonment.h"
#include "Bex/CThread.h"
#include "Platform/Clock.h"

#include <algorithm>
#include <utility>

namespace {

/// Not quite half of what may be unflushed, so that the next part is as large when mails have several recipients.
constexpr uint32_t ENOUGH = CCopyGroup::MOST_COPIES / 2 - 2;

} // namespace

CGroupAside::~CGroupAside()
{
    if (!m_bBegun)
        return;
    try {
        m_job.Wait();
    } catch (const Bex::CAbandonment&) { // it ends here
    }
    if (m_end.bFlushed)
        m_deletions.Settle(m_files);
}

void CGroupAside::Delivered(uint64_t ui64Micros)
{
    m_ui64StoreMicros += ui64Micros - std::min(ui64Micros, std::exchange(m_ui64WaitedMicros, 0));
}

void CGroupAside::Ended(uint32_t nCopies, uint64_t ui64Micros)
{
    SetFlush(ui64Micros);
    m_ui64WaitedMicros += ui64Micros;
    SetWhole(nCopies);
}

void CGroupAside::SetFlush(uint64_t ui64Micros) { m_ui64BeforeMicros = std::exchange(m_ui64FlushMicros, ui64Micros); }

void CGroupAside::SetWhole(uint32_t nCopies)
{
    m_ui64WholeMicros = std::exchange(m_ui64StoreMicros, 0) * CCopyGroup::MOST_COPIES / std::max(nCopies, 1u);
}

bool CGroupAside::IsWorthwhile() const
{
    return !m_bBegun && m_group.CopiesForAside() >= ENOUGH &&
           std::min(m_ui64FlushMicros, m_ui64BeforeMicros) <= m_ui64WholeMicros;
}

void CGroupAside::Begin()
{
    SetWhole(m_group.CopiesForAside());
    m_part = m_group.HandOver();
    for (CCopyGroup::SDelivered& file : std::exchange(m_part.delivered, {}))
        m_deletions.Know(m_files, std::move(file.pFile));
    m_end = {};
    m_bBegun = true;
    if (!m_job.Begin([this] { Work(); }))
        Work();
}

/// The copies are on stable storage before the queue files they were made from may go.
void CGroupAside::Work()
{
    const uint64_t ui64Started = Platform::TickMicros();
    Bex::CThread::EndIfAbandoned();
    m_end.bFlushed = m_part.flush.Flush(&m_end.unpromised);
    m_end.error = Platform::LastError();
    SetFlush(Platform::TickMicros() - ui64Started);
    if (m_end.bFlushed)
        CDeletionList::LetLeave(m_files);
}

CGroupAside::SEnd CGroupAside::Settle()
{
    const uint64_t ui64Started = Platform::TickMicros();
    m_job.Wait();
    m_ui64WaitedMicros += Platform::TickMicros() - ui64Started;
    m_bBegun = false;
    m_group.SettleAside(m_end.bFlushed, m_end.error);
    if (!m_end.bFlushed)
        m_end.failed = m_deletions.Forget(m_files);
    m_end.bNewMail = m_deletions.Settle(m_files);
    return std::exchange(m_end, {});
}
