#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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
    std::string strFailure;  ///< why a start has failed, in one line
};

/// Tells the service manager, and waits for a second at most where that reads nothing. True also when none listens
/// (NOTIFY_SOCKET is not set); false: LastError. Any thread.
bool ReportServiceStatus(const SServiceStatus& status);
bool ReportWork(std::string_view line); ///< what a running service is at; likewise, without waiting
bool ReportAlive();                     ///< likewise, without waiting; at least once in WatchdogMillis

bool HasServiceManager();  ///< whether one listens
unsigned WatchdogMillis(); ///< after that time without ReportAlive it starts the service again; 0: it does not ask

} // namespace Platform
