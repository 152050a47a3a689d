#include "Bex/CEvent.h"

#include "Bex/CActivity.h"
#include "Bex/CSystemException.h"
#include "Bex/FrozenLine.h"
#include "Platform/Errors.h"

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CEvent";
constexpr FrozenLine CREATE_LINE = 39;

[[noreturn]] void ThrowLastError(int iLine)
{
    ThrowSystemException(SOURCE_FILE, iLine, Platform::LastError().dwSysError);
}

} // namespace

CEvent::CEvent()
{
    if (!m_handle.IsValid())
        ThrowLastError(CREATE_LINE);
}

void CEvent::Set()
{
    if (!m_handle.Set())
        ThrowLastError(__LINE__);
}

void CEvent::Reset()
{
    if (!m_handle.Reset())
        ThrowLastError(__LINE__);
}

bool CEvent::Wait(unsigned dwMillis) const { return WaitForAny({&m_handle}, dwMillis); }

bool WaitForAny(std::initializer_list<const Platform::IWaitable*> objects, unsigned dwMillis)
{
    if (dwMillis > 0)
        CActivity::Waits(dwMillis);
    const Platform::EWaitResult result = Platform::WaitAny(objects, dwMillis);
    if (dwMillis > 0)
        CActivity::Alive();
    if (result == Platform::EWaitResult::Failed)
        ThrowLastError(__LINE__);
    return result == Platform::EWaitResult::Signalled;
}

} // namespace Bex
