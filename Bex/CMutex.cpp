#include "Bex/CMutex.h"

#include "Bex/CInvalidParameterException.h"
#include "Bex/CInvalidStateException.h"
#include "Bex/CSystemException.h"
#include "Bex/FrozenLine.h"
#include "Platform/CEventHandle.h"
#include "Platform/Errors.h"

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

} // namespace

CMutex::CMutex(const CSimpleString& strName)
{
    if (strName.Length() > LONGEST_NAME)
        ThrowInvalidParameterException(SOURCE_FILE, __LINE__);
    m_pMutex = std::make_unique<Platform::CNamedMutex>(strName.View());
    if (!m_pMutex->IsValid())
        ThrowSystemException(SOURCE_FILE, __LINE__, Platform::LastError().dwSysError);
}

bool CMutex::Lock(unsigned dwMillis)
{
    const Platform::ELockResult result = Checked(m_pMutex).Lock(dwMillis);
    return result == Platform::ELockResult::Acquired || result == Platform::ELockResult::Abandoned;
}

bool CMutex::Lock() { return Lock(Platform::INFINITE); }

bool CMutex::Unlock()
{
    Checked(m_pMutex).Unlock();
    return true;
}

void CMutex::Close() { m_pMutex.reset(); }

} // namespace Bex
