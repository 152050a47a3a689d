#pragma once

#include <csignal>

namespace Platform {

/// While it lives no signal is delivered to this thread, nor ever to threads that start meanwhile, which inherit the
/// mask.
class CSignalsBlocked
{
public:
    CSignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~CSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    CSignalsBlocked(const CSignalsBlocked&) = delete;
    CSignalsBlocked& operator=(const CSignalsBlocked&) = delete;

private:
    sigset_t m_before;
};

} // namespace Platform
