#pragma once

#include <csignal>
#include <cstddef>

namespace Platform {

/// The stack on which this thread handles fatal signals, so that the exhaustion of its own stack can be reported.
///
/// Lives on the thread that makes it, from its first frame to its last. Also lets the fatal signals through that the
/// thread inherited as blocked: the kernel would end the process on them without a report. Where there is no memory
/// for the stack, the thread goes on without it.
class CAlternateStack
{
public:
    CAlternateStack();
    ~CAlternateStack(); ///< the stack in force before is in force again
    CAlternateStack(const CAlternateStack&) = delete;
    CAlternateStack& operator=(const CAlternateStack&) = delete;

    bool IsValid() const { return m_pMemory != nullptr; } ///< false: errno tells, right after construction

private:
    void* m_pMemory = nullptr;
    size_t m_nBytes = 0;
    stack_t m_before{};
};

} // namespace Platform
