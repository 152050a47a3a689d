#include "Bex/CLogPointer.h"

namespace Bex {

void CLogPointer::Replace(std::shared_ptr<ILogDestination> pDestination)
{
    const std::lock_guard lock(m_mutex);
    m_pDestination.swap(pDestination); // the old one goes after the lock, unless a writer still holds it
}

std::shared_ptr<ILogDestination> CLogPointer::Get() const
{
    const std::lock_guard lock(m_mutex);
    return m_pDestination;
}

} // namespace Bex
