#pragma once

#include <cstdint>

namespace Platform {

enum class EServiceState : unsigned {
    None = 0, ///< nothing to report
    Stopped = 1,
    StartPending = 2,
    StopPending = 3,
    Running = 4,
    ContinuePending = 5,
    PausePending = 6,
    Paused = 7,
};

struct SServiceStatus
{
    EServiceState state = EServiceState::Stopped;
    unsigned dwAcceptedControls = 0;
    uint32_t dwExitCode = 0;
    uint32_t dwSpecificExitCode = 0;
    unsigned dwCheckPoint = 0;
    unsigned dwWaitHint = 0; ///< milliseconds until the next report is due
    bool bReloading = false; ///< running, but reading the configuration again
};

/// Tells the service manager. True also when none listens (NOTIFY_SOCKET is not set); false: LastError. Any thread.
bool ReportServiceStatus(const SServiceStatus& status);

} // namespace Platform
