#pragma once

#include <atomic>
#include <initializer_list>
#include <optional>

namespace Platform {

/// Something a thread can wait for: an event or a directory watch.
class IWaitable
{
public:
    virtual ~IWaitable() = default;
    virtual int WaitDescriptor() const = 0; ///< readable while signalled; -1 when there is nothing to wait for
    virtual void Observe() const {} ///< a wait found it signalled: what led to the signal is visible from here on
};

/// A manual-reset event: stays set until reset and releases every waiter.
///
/// Any thread may set, reset and wait. Operations answer false and set LastError when the system refuses them.
class CEventHandle : public IWaitable
{
public:
    CEventHandle();
    ~CEventHandle() override;
    CEventHandle(const CEventHandle&) = delete;
    CEventHandle& operator=(const CEventHandle&) = delete;

    bool IsValid() const { return m_iDescriptor >= 0; }
    bool Set();
    bool Reset();
    int WaitDescriptor() const override { return m_iDescriptor; }
    void Observe() const override { static_cast<void>(m_nSets.load(std::memory_order_acquire)); }

private:
    int m_iDescriptor;
    std::atomic<unsigned> m_nSets = 0; ///< orders memory between setter and waiter, which poll() does not promise
};

inline constexpr unsigned INFINITE = 0xFFFFFFFFu;

enum class EWaitResult { Signalled, TimedOut, Failed };

/// Waits until one of the objects is signalled or dwMillis have passed (INFINITE: no limit). Consumes nothing.
EWaitResult WaitAny(std::initializer_list<const IWaitable*> objects, unsigned dwMillis);

} // namespace Platform
