#include "Platform/CNamedMutex.h"

#include "Platform/linux/thread/CNameTable.h"

#include <utility>

namespace Platform {

struct CNamedMutex::SState
{
    CNameTable::SEntry* pEntry = nullptr;
    // Both are touched only by the thread that owns the mutex.
    uint64_t ui64Holder = 0;
    unsigned nHeld = 0;
};

CNamedMutex::CNamedMutex(std::string_view strName, std::string_view strDirectory) : m_pState(std::make_unique<SState>())
{
    m_pState->pEntry = CNameTable::Instance().Open(strName, strDirectory);
}

CNamedMutex::~CNamedMutex()
{
    for (; m_pState->nHeld > 0; --m_pState->nHeld)
        CNameTable::Instance().Release(*m_pState->pEntry, m_pState->ui64Holder);
    CNameTable::Instance().Close(m_pState->pEntry);
}

ELockResult CNamedMutex::Lock(unsigned dwMillis)
{
    const uint64_t ui64Thread = CNameTable::CurrentOwner();
    const ELockResult result = CNameTable::Instance().Acquire(*m_pState->pEntry, ui64Thread, dwMillis);
    if (result != ELockResult::Acquired && result != ELockResult::Abandoned)
        return result;
    if (std::exchange(m_pState->ui64Holder, ui64Thread) != ui64Thread)
        m_pState->nHeld = 0; // was held by a thread that ended without letting go
    ++m_pState->nHeld;
    return result;
}

void CNamedMutex::Unlock()
{
    const uint64_t ui64Thread = CNameTable::CurrentOwner();
    if (!CNameTable::Instance().IsOwner(*m_pState->pEntry, ui64Thread))
        return;
    if (m_pState->ui64Holder != ui64Thread || m_pState->nHeld == 0)
        return; // the thread owns it through another object
    --m_pState->nHeld;
    CNameTable::Instance().Release(*m_pState->pEntry, ui64Thread);
}

bool CNamedMutex::NoteWhetherPlaceWorks(bool bWorks) { return m_pState->pEntry->place.bWorks.exchange(bWorks); }

std::string CNamedMutex::PlaceBelow(std::string_view strDirectory)
{
    return CNameLockFile::PlaceBelow(std::string(strDirectory));
}

} // namespace Platform
