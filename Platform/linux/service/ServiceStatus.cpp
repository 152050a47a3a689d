#include "Platform/ServiceStatus.h"

#include "Platform/Errors.h"

#include <ctime>
#include <string>
#include <systemd/sd-daemon.h>

namespace Platform {

namespace {

constexpr uint64_t MICROSECONDS = 1'000'000;
constexpr uint64_t MICROSECONDS_PER_MILLISECOND = 1000;

std::string MonotonicNow()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::to_string(static_cast<uint64_t>(now.tv_sec) * MICROSECONDS +
                          static_cast<uint64_t>(now.tv_nsec) / MICROSECONDS_PER_MILLISECOND);
}

std::string Extension(const SServiceStatus& status)
{
    return "\nEXTEND_TIMEOUT_USEC=" + std::to_string(status.dwWaitHint * MICROSECONDS_PER_MILLISECOND);
}

/// The state in the words of sd_notify(3).
std::string Notification(const SServiceStatus& status)
{
    if (status.bReloading)
        return "RELOADING=1\nMONOTONIC_USEC=" + MonotonicNow() + "\nSTATUS=Restarting";
    switch (status.state) {
    case EServiceState::StartPending:
        return "STATUS=Starting" + Extension(status);
    case EServiceState::StopPending:
        return "STOPPING=1\nSTATUS=Stopping" + Extension(status);
    case EServiceState::Running:
        return "READY=1\nSTATUS=Running";
    case EServiceState::ContinuePending:
        return "STATUS=Continuing";
    case EServiceState::PausePending:
        return "STATUS=Pausing";
    case EServiceState::Paused: // ready as well: it ends a restart
        return "READY=1\nSTATUS=Paused";
    case EServiceState::None:
    case EServiceState::Stopped:
        break;
    }
    std::string strText = "STOPPING=1\nSTATUS=Stopped";
    if (status.dwExitCode != 0)
        strText +=
            ", error " + std::to_string(status.dwExitCode) + " (" + std::to_string(status.dwSpecificExitCode) + ")";
    return strText;
}

} // namespace

bool ReportServiceStatus(const SServiceStatus& status)
{
    const int iResult = sd_notify(0, Notification(status).c_str());
    if (iResult < 0)
        SetLastError(ErrorFromErrno(-iResult));
    return iResult >= 0;
}

} // namespace Platform
