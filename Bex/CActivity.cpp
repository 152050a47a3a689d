#include "Bex/CActivity.h"

#include "Bex/TextFunctions.h"
#include "Platform/CImmortal.h"
#include "Platform/CNativeThread.h"
#include "Platform/Clock.h"
#include "Platform/IWaitable.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace Bex {

namespace {

struct SActivities
{
    std::mutex lock;
    std::vector<CActivity*> all;
};

SActivities& Activities()
{
    static Platform::CImmortal<SActivities> activities;
    return *activities;
}

thread_local CActivity* t_pCurrent = nullptr;

uint64_t After(uint64_t nTicks, uint64_t ui64Millis)
{
    return ui64Millis > CActivity::WITHOUT_END - nTicks ? CActivity::WITHOUT_END : nTicks + ui64Millis;
}

} // namespace

CActivity::CActivity(std::string_view thread)
    : m_strThread(thread), m_dwThreadId(Platform::CurrentThreadId()), m_pOuter(std::exchange(t_pCurrent, this)),
      m_nGoodUntil(After(Platform::TickCount(), PATIENCE)), m_nBetweenSince(Platform::TickCount())
{
    const std::lock_guard lock(Activities().lock);
    Activities().all.push_back(this);
}

CActivity::~CActivity()
{
    const std::lock_guard lock(Activities().lock);
    std::erase(Activities().all, this);
    t_pCurrent = m_pOuter;
}

std::vector<CActivity::SState> CActivity::List() { return List(Platform::TickCount()); }

std::vector<CActivity::SState> CActivity::List(uint64_t nNowTicks)
{
    const std::lock_guard lock(Activities().lock);
    std::vector<SState> states;
    for (const CActivity* pActivity : Activities().all)
        states.push_back(pActivity->StateAt(nNowTicks));
    return states;
}

CActivity::SState CActivity::StateAt(uint64_t nNowTicks) const
{
    const std::lock_guard lock(m_lock);
    return {.strThread = m_strThread,
            .dwThreadId = m_dwThreadId,
            .strStep = m_pStep != nullptr ? m_pStep->m_text : BETWEEN_STEPS,
            .nSinceTicks = m_pStep != nullptr ? m_pStep->m_nSince : m_nBetweenSince,
            .bStuck = !m_bGivenUp && nNowTicks > m_nGoodUntil,
            .bGivenUp = m_bGivenUp};
}

void CActivity::Alive()
{
    if (t_pCurrent != nullptr)
        t_pCurrent->GoodFor(0);
}

void CActivity::MayTake(uint64_t ui64Millis)
{
    if (t_pCurrent == nullptr)
        return;
    t_pCurrent->m_nStepEnd = std::max(t_pCurrent->m_nStepEnd, After(Platform::TickCount(), ui64Millis));
    t_pCurrent->GoodFor(0);
}

void CActivity::Waits(unsigned dwMillis)
{
    if (t_pCurrent != nullptr)
        t_pCurrent->GoodFor(dwMillis == Platform::INFINITE ? WITHOUT_END : dwMillis);
}

/// One that has just ended is none any more.
void CActivity::GiveUp(unsigned dwThreadId)
{
    const std::lock_guard lock(Activities().lock);
    for (CActivity* pActivity : Activities().all) {
        if (pActivity->m_dwThreadId == dwThreadId)
            pActivity->m_bGivenUp = true;
    }
}

/// What was expected to take long is allowed PATIENCE beyond that.
void CActivity::GoodFor(uint64_t ui64Millis)
{
    m_nGoodUntil = After(std::max(After(Platform::TickCount(), ui64Millis), m_nStepEnd), PATIENCE);
}

CActivity::CStep::CStep(const char* pszFormat, ...) : m_pActivity(t_pCurrent)
{
    if (m_pActivity == nullptr)
        return;
    va_list arguments;
    va_start(arguments, pszFormat);
    const int iLength = std::vsnprintf(m_text, sizeof m_text, pszFormat, arguments);
    va_end(arguments);
    m_text[std::clamp<int>(iLength, 0, LONGEST_TEXT)] = '\0';
    MaskControls(m_text, m_text + std::clamp<int>(iLength, 0, LONGEST_TEXT));
    m_nSince = Platform::TickCount();
    m_nOuterEnd = m_pActivity->m_nStepEnd;
    {
        const std::lock_guard lock(m_pActivity->m_lock);
        m_pOuter = std::exchange(m_pActivity->m_pStep, this);
    }
    m_pActivity->GoodFor(0);
}

CActivity::CStep::~CStep()
{
    if (m_pActivity == nullptr)
        return;
    {
        const std::lock_guard lock(m_pActivity->m_lock);
        m_pActivity->m_pStep = m_pOuter;
        if (m_pOuter == nullptr)
            m_pActivity->m_nBetweenSince = Platform::TickCount();
    }
    m_pActivity->m_nStepEnd = m_nOuterEnd;
    m_pActivity->GoodFor(0);
}

} // namespace Bex
