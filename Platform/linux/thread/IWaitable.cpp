#include "Platform/IWaitable.h"

#include "Platform/Clock.h"
#include "Platform/Errors.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <memory>
#include <poll.h>

namespace Platform {

namespace {

constexpr size_t USUAL_OBJECTS = 8;

int PollTimeout(uint64_t ui64Started, unsigned dwMillis)
{
    if (dwMillis == INFINITE)
        return -1;
    const uint64_t ui64Passed = TickCount() - ui64Started;
    if (ui64Passed >= dwMillis)
        return 0;
    const uint64_t ui64Left = dwMillis - ui64Passed;
    return ui64Left > INT_MAX ? INT_MAX : static_cast<int>(ui64Left);
}

EWaitResult PollUntil(pollfd* pPolled, nfds_t nPolled, unsigned dwMillis)
{
    const uint64_t ui64Started = TickCount();
    for (;;) {
        const int iTimeout = PollTimeout(ui64Started, dwMillis);
        const int iReady = poll(pPolled, nPolled, iTimeout);
        if (iReady > 0)
            break;
        if (iReady == 0 && iTimeout != INT_MAX)
            return EWaitResult::TimedOut;
        if (iReady < 0 && errno != EINTR) {
            SetLastError(ErrorFromErrno(errno));
            return EWaitResult::Failed;
        }
    }
    for (nfds_t nIndex = 0; nIndex < nPolled; ++nIndex) {
        if (pPolled[nIndex].revents & POLLIN)
            return EWaitResult::Signalled;
    }
    SetLastError(ErrorFromErrno(EBADF));
    return EWaitResult::Failed;
}

} // namespace

EWaitResult WaitAny(std::initializer_list<const IWaitable*> objects, unsigned dwMillis)
{
    std::array<pollfd, USUAL_OBJECTS> usual;
    std::unique_ptr<pollfd[]> pMany;
    pollfd* pPolled = usual.data();
    if (objects.size() > usual.size()) {
        pMany = std::make_unique<pollfd[]>(objects.size());
        pPolled = pMany.get();
    }
    nfds_t nPolled = 0;
    for (const IWaitable* pObject : objects) // poll() passes over descriptors of -1
        pPolled[nPolled++] = {pObject != nullptr ? pObject->WaitDescriptor() : -1, POLLIN, 0};
    const EWaitResult result = PollUntil(pPolled, nPolled, dwMillis);
    for (const IWaitable* pObject : objects) {
        if ((pPolled++->revents & POLLIN) != 0)
            pObject->Observe();
    }
    return result;
}

} // namespace Platform
