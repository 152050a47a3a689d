#include "Tobix/ServicePause.h"

#include "Bex/CService.h"

bool ServiceIsPaused()
{
    const Bex::CService* pService = Bex::CService::Instance();
    return pService != nullptr && pService->IsPaused() && pService->IsRunning();
}
