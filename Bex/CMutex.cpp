#include "Bex/CMutex.h"

#include "Bex/CActivity.h"
#include "Bex/CInvalidParameterException.h"
#include "Bex/CInvalidStateException.h"
#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Platform/CEventHandle.h"
#include "Platform/CImmortal.h"
#include "Platform/Errors.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>

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

/// That those of the directory work, as far as is known.
std::atomic<bool>& WorkIn(std::string_view directory)
{
    struct SPlaces
    {
        std::mutex mutex;
        std::map<std::string, std::atomic<bool>, std::less<>> work;
    };
    static Platform::CImmortal<SPlaces> s_places;
    const std::lock_guard lock(s_places->mutex);
    const auto found = s_places->work.find(directory);
    return found != s_places->work.end() ? found->second
                                         : s_places->work.try_emplace(std::string(directory), true).first->second;
}

/// Once until they work again: every mail meets it.
void TellWhetherLocksWork(bool bWork, std::atomic<bool>& bDidWork)
{
    const Platform::SError error = Platform::LastError();
    if (bDidWork.exchange(bWork) && !bWork)
        LogError(MainLog(), "no place for named locks can be used (SysError=%d, LibError=%d): mail has to wait",
                 static_cast<int>(error.dwSysError), error.iLibError);
    Platform::SetLastError(error);
}

} // namespace

CMutex::CMutex(const CSimpleString& strName, const CSimpleString& strDirectory) : m_pWork(&WorkIn(strDirectory.View()))
{
    if (strName.Length() > LONGEST_NAME)
        ThrowInvalidParameterException(SOURCE_FILE, __LINE__);
    m_pMutex = std::make_unique<Platform::CNamedMutex>(strName.View(), strDirectory.View());
}

bool CMutex::Lock(unsigned dwMillis)
{
    const CActivity::CStep step("waits for a lock"); // its holder may be another process
    CActivity::Waits(dwMillis);
    const Platform::ELockResult result = Checked(m_pMutex).Lock(dwMillis);
    TellWhetherLocksWork(result != Platform::ELockResult::Failed, *m_pWork);
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
