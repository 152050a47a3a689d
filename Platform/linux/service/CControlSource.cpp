#include "Platform/CControlSource.h"

#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/Result.h"

#include <csignal>
#include <cstdlib>
#include <sys/signalfd.h>

namespace Platform {

namespace {

struct SControlSignal
{
    int iSignal;
    unsigned dwInService; ///< 0: keeps its default effect
    unsigned dwInConsole;
};

/// SIGRTMIN, which is no constant, brings its control with it.
constexpr SControlSignal CONTROL_SIGNALS[] = {
    {SIGTERM, CONTROL_STOP, CONTROL_STOP},
    {SIGINT, 0, CONTROL_STOP},
    {SIGQUIT, 0, CONTROL_STOP},
    {SIGPWR, CONTROL_SHUTDOWN, CONTROL_STOP},
    {SIGUSR1, CONTROL_PAUSE, CONTROL_PAUSE},
    {SIGUSR2, CONTROL_CONTINUE, CONTROL_CONTINUE},
    {SIGHUP, CONTROL_RESTART, CONTROL_RESTART},
};

unsigned ControlOf(const SControlSignal& signal, ERunMode mode)
{
    return mode == ERunMode::Console ? signal.dwInConsole : signal.dwInService;
}

sigset_t SignalsOf(ERunMode mode)
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const SControlSignal& signal : CONTROL_SIGNALS) {
        if (ControlOf(signal, mode) != 0)
            sigaddset(&signals, signal.iSignal);
    }
    sigaddset(&signals, SIGRTMIN);
    return signals;
}

/// The terminal went away. That is no request to read the configuration: the default effect follows, which ends the
/// process unless it was started so that it survives this (nohup).
void HangUp()
{
    struct sigaction action
    {};
    sigaction(SIGHUP, nullptr, &action);
    if (action.sa_handler == SIG_IGN)
        return;
    sigset_t hangUp;
    sigemptyset(&hangUp);
    sigaddset(&hangUp, SIGHUP);
    std::signal(SIGHUP, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &hangUp, nullptr);
    std::raise(SIGHUP);
}

/// 0: none.
unsigned Translate(const signalfd_siginfo& info, ERunMode mode)
{
    const int iSignal = static_cast<int>(info.ssi_signo);
    if (iSignal == SIGRTMIN)
        return info.ssi_code == SI_QUEUE ? static_cast<unsigned>(info.ssi_int) : 0;
    if (iSignal == SIGHUP && mode == ERunMode::Console && info.ssi_code == SI_KERNEL) {
        HangUp();
        return 0;
    }
    for (const SControlSignal& signal : CONTROL_SIGNALS) {
        if (signal.iSignal == iSignal)
            return ControlOf(signal, mode);
    }
    return 0;
}

} // namespace

void BlockControlSignals()
{
    const sigset_t signals = SignalsOf(ERunMode::Console);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // a file too big for the limit is a failed write, not the end of the daemon
}

void ReleaseControlSignals()
{
    const sigset_t signals = SignalsOf(ERunMode::Console);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

CControlSource::~CControlSource() { CDescriptor(m_iDescriptor).Close(); }

bool CControlSource::Open(ERunMode mode)
{
    BlockControlSignals();
    const sigset_t signals = SignalsOf(mode);
    CDescriptor source(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!source.IsValid())
        return FailWithErrno();
    if (mode == ERunMode::Service) {
        sigset_t consoleOnly;
        sigemptyset(&consoleOnly);
        for (const SControlSignal& signal : CONTROL_SIGNALS) {
            if (signal.dwInService == 0)
                sigaddset(&consoleOnly, signal.iSignal);
        }
        pthread_sigmask(SIG_UNBLOCK, &consoleOnly, nullptr);
    }
    CDescriptor(m_iDescriptor).Close();
    m_iDescriptor = source.Release();
    m_mode = mode;
    return true;
}

bool CControlSource::Take(unsigned& dwControl)
{
    signalfd_siginfo info{};
    while (read(m_iDescriptor, &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
        dwControl = Translate(info, m_mode);
        if (dwControl != 0)
            return true;
    }
    return false;
}

} // namespace Platform
