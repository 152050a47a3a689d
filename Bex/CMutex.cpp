#include "Bex/CMutex.h"

#include "Bex/CActivity.h"
#include "Bex/CInvalidParameterException.h"
#include "Bex/CInvalidStateException.h"
#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Platform/CEventHandle.h"
#include "Platform/Errors.h"

#include <functional>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CMutex";
constexpr uint32_t LONGEST_NAME = 260;
constexpr FrozenLine NO_MUTEX_LINE = 57;

Platform::CNamedMutex& Checked(const std::unique_ptr<Platform::CNamedMutex>& pMutex)
{
    if (!pMutex)
        ThrowInvalidStateException(SOURCE_FILE, NO_MUTEX_LINE);
    return *pMutex;
}

/// Once until it works again: every mail meets it.
void TellWhetherPlaceWorks(Platform::CNamedMutex& mutex, bool bWorks)
{
    const Platform::SError error = Platform::LastError();
    if (mutex.NoteWhetherPlaceWorks(bWorks) && !bWorks)
        LogError(MainLog(), "no place for named locks can be used (SysError=%d, LibError=%d): mail has to wait",
                 static_cast<int>(error.dwSysError), error.iLibError);
    Platform::SetLastError(error);
}

} // namespace

CMutex::CMutex(const CSimpleString& strName, const CSimpleString& strDirectory)
{
    if (strName.Length() > LONGEST_NAME)
        ThrowInvalidParameterException(SOURCE_FILE, __LINE__);
    m_pMutex = std::make_unique<Platform::CNamedMutex>(strName.View(), strDirectory.View());
}

bool CMutex::Lock(unsigned dwMillis)
{
    const CActivity::CStep step("waits for a lock"); // its holder may be another process
    CActivity::Waits(dwMillis);
    Platform::CNamedMutex& mutex = Checked(m_pMutex);
    const Platform::ELockResult result = mutex.Lock(dwMillis);
    TellWhetherPlaceWorks(mutex, result != Platform::ELockResult::Failed);
    return result == Platform::ELockResult::Acquired || result == Platform::ELockResult::Abandoned;
}

bool CMutex::Lock(unsigned dwMillis, const std::function<void()>& BeforeWaiting)
{
    if (Lock(0))
        return true;
    if (Platform::LastError().dwSysError != Platform::SYS_TIMEOUT)
        return false;
    if (BeforeWaiting)
        BeforeWaiting();
    return Lock(dwMillis);
}

bool CMutex::Lock() { return Lock(Platform::INFINITE); }

bool CMutex::Unlock()
{
    Checked(m_pMutex).Unlock();
    return true;
}

void CMutex::Close() { m_pMutex.reset(); }

} // namespace Bex
