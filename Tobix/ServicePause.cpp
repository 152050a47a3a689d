#include "Tobix/ServicePause.h"

#include "Bex/CActivity.h"
#include "Bex/CService.h"

namespace {

constexpr unsigned PAUSE_MILLIS = 500;

} // namespace

bool ServiceIsPaused()
{
    const Bex::CService* pService = Bex::CService::Instance();
    return pService != nullptr && pService->IsPaused() && pService->IsRunning();
}

void WaitWhileServiceIsPaused(const Bex::CEvent& stop, const std::function<void()>& Meanwhile)
{
    if (!ServiceIsPaused())
        return;
    const Bex::CActivity::CStep step("pauses");
    while (ServiceIsPaused() && !stop.IsSet()) {
        Meanwhile();
        stop.Wait(PAUSE_MILLIS);
    }
}
