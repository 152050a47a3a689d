#include "Platform/CEventHandle.h"

#include "Platform/Errors.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Platform {

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

} // namespace Platform
