#pragma once

#include <memory>

namespace Platform {

unsigned CurrentThreadId(); ///< gettid()

/// One native thread. Owned by the controlling thread; must be joined or detached before it goes.
class CNativeThread
{
public:
    using Procedure = void (*)(void* pArgument);

    /// Null when the thread cannot be created (LastError tells why). The id is known when this returns.
    static std::unique_ptr<CNativeThread> Create(Procedure procedure, void* pArgument);
    ~CNativeThread(); ///< detaches a thread that was not joined
    CNativeThread(const CNativeThread&) = delete;
    CNativeThread& operator=(const CNativeThread&) = delete;

    unsigned Id() const;
    void Join();   ///< waits without limit for the procedure to return; never from the thread itself
    void Detach(); ///< lets the thread run on its own

private:
    struct SState;
    explicit CNativeThread(std::unique_ptr<SState> pState);
    std::unique_ptr<SState> m_pState;
};

} // namespace Platform
