#pragma once

#include "Platform/IWaitable.h"

/// What the service manager or an administrator asks of this process: controls, which come as signals.
namespace Platform {

enum EServiceControl : unsigned {
    CONTROL_STOP = 1,
    CONTROL_PAUSE = 2,
    CONTROL_CONTINUE = 3,
    CONTROL_INTERROGATE = 4,
    CONTROL_SHUTDOWN = 5,
    CONTROL_RESTART = 129, ///< read the configuration again
};

enum class ERunMode { Service, Console };

/// Holds back the signals that are controls, for this thread and those that it starts, and ignores broken pipes.
/// To be called before the first thread starts.
void BlockControlSignals();
/// Lets them have their default effect on this thread again: for a process that takes no controls after all.
void ReleaseControlSignals();

/// The controls sent to this process. One object, taken from by one thread at a time; any thread may wait on it.
class CControlSource : public IWaitable
{
public:
    CControlSource() = default;
    ~CControlSource() override;
    CControlSource(const CControlSource&) = delete;
    CControlSource& operator=(const CControlSource&) = delete;

    /// Must run on a thread whose signals are the process's (before others start). False: LastError.
    bool Open(ERunMode mode);
    bool IsOpen() const { return m_iDescriptor >= 0; }
    bool Take(unsigned& dwControl); ///< the next one in hand; never blocks, false when there is none
    int WaitDescriptor() const override { return m_iDescriptor; }

private:
    int m_iDescriptor = -1;
    ERunMode m_mode = ERunMode::Service;
};

} // namespace Platform
