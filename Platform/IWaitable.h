#pragma once

#include <initializer_list>

namespace Platform {

/// Something a thread can wait for, such as an event, a watch or the service's controls. Any thread may wait.
class IWaitable
{
public:
    virtual ~IWaitable() = default;
    virtual int WaitDescriptor() const = 0; ///< readable while signalled; -1 when there is nothing to wait for
    virtual void Observe() const {} ///< a wait found it signalled: what led to the signal is visible from here on
};

inline constexpr unsigned INFINITE = 0xFFFFFFFFu;

enum class EWaitResult { Signalled, TimedOut, Failed };

/// Waits until one of the objects is signalled or dwMillis have passed (INFINITE: no limit). Consumes nothing.
EWaitResult WaitAny(std::initializer_list<const IWaitable*> objects, unsigned dwMillis);

} // namespace Platform
