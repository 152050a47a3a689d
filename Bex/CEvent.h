#pragma once

#include "Platform/CEventHandle.h"

#include <initializer_list>

namespace Bex {

/// A manual-reset event, initially not set. Any thread may use it.
///
/// An event that the system refuses raises CSystemException, from the constructor and every operation.
class CEvent
{
public:
    CEvent();

    void Set();
    void Reset();
    bool IsSet() const { return Wait(0); }
    bool Wait(unsigned dwMillis) const; ///< true when it is set; Platform::INFINITE waits without limit
    const Platform::IWaitable& Waitable() const { return m_handle; }

private:
    Platform::CEventHandle m_handle;
};

/// Waits until one of the objects is signalled, at most dwMillis; raises CSystemException when the wait fails.
bool WaitForAny(std::initializer_list<const Platform::IWaitable*> objects, unsigned dwMillis);

} // namespace Bex
