#include "Platform/CEventHandle.h"

#include "Platform/Clock.h"
#include "Platform/Errors.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <memory>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

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

CEventHandle::CEventHandle() : m_iDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_iDescriptor < 0)
        SetLastError(ErrorFromErrno(errno));
}

CEventHandle::~CEventHandle()
{
    if (IsValid())
        close(m_iDescriptor);
}

bool CEventHandle::Set()
{
    m_nSets.fetch_add(1, std::memory_order_release);
    // A counter that is full is set already.
    if (eventfd_write(m_iDescriptor, 1) == 0 || errno == EAGAIN)
        return true;
    SetLastError(ErrorFromErrno(errno));
    return false;
}

bool CEventHandle::Reset()
{
    eventfd_t ui64Count = 0;
    if (eventfd_read(m_iDescriptor, &ui64Count) == 0 || errno == EAGAIN)
        return true;
    SetLastError(ErrorFromErrno(errno));
    return false;
}

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
