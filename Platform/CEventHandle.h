#pragma once

#include "Platform/IWaitable.h"

#include <atomic>

namespace Platform {

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

} // namespace Platform
