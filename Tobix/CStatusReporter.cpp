#include "Tobix/CStatusReporter.h"

#include "Bex/CActivity.h"
#include "Bex/CService.h"
#include "Bex/Log.h"
#include "Platform/Clock.h"
#include "Platform/ServiceStatus.h"

#include <algorithm>
#include <utility>

namespace {

constexpr unsigned STATUS_MILLIS = 1000;
constexpr unsigned SIGNS_PER_TERM = 3; ///< so that one that comes late is not missed
constexpr uint64_t MILLIS_PER_SECOND = 1000;

unsigned long long Seconds(uint64_t ui64Millis) { return ui64Millis / MILLIS_PER_SECOND; }

} // namespace

CStatusReporter::CStatusReporter(std::function<std::optional<std::string>()> Describe) : m_Describe(std::move(Describe))
{}

void CStatusReporter::Body()
{
    const unsigned dwTerm = Platform::WatchdogMillis();
    const uint64_t ui64SignAfter = dwTerm / SIGNS_PER_TERM;
    const unsigned dwRest = dwTerm == 0 ? STATUS_MILLIS : std::clamp(dwTerm / SIGNS_PER_TERM, 1U, STATUS_MILLIS);
    uint64_t nToldTicks = 0;
    uint64_t nSignTicks = 0;
    for (; ShallRun(); StopEvent().Wait(dwRest)) {
        const uint64_t nNow = Platform::TickCount();
        if (nNow - nToldTicks >= STATUS_MILLIS) {
            nToldTicks = nNow;
            if (const auto line = m_Describe())
                Bex::CService::Instance()->ReportWork(*line);
        }
        if (dwTerm > 0 && nNow - nSignTicks >= ui64SignAfter) {
            nSignTicks = nNow;
            TellThatAllGetOn();
        }
    }
}

void CStatusReporter::TellThatAllGetOn()
{
    bool bAll = true;
    for (const Bex::CActivity::SState& state : Bex::CActivity::List()) {
        if (!state.bStuck)
            continue;
        bAll = false;
        if (!m_bStuckLogged)
            Bex::LogError(Bex::MainLog(), "%s (id %04X) does not get on; for %llu seconds: %s", state.strThread.c_str(),
                          state.dwThreadId, Seconds(Platform::TickCount() - state.nSinceTicks), state.strStep.c_str());
    }
    m_bStuckLogged = !bAll;
    if (bAll)
        Platform::ReportAlive();
}
