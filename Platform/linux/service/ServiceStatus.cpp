#include "Platform/ServiceStatus.h"

#include "Platform/Process.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/net/LocalDatagram.h"

#include <algorithm>
#include <climits>
#include <ctime>
#include <string>
#include <systemd/sd-daemon.h>

namespace Platform {

namespace {

constexpr uint64_t MICROSECONDS = 1'000'000;
constexpr int LONGEST_WAIT = MICROSECONDS; ///< for a manager that reads nothing
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
    if (!status.strFailure.empty())
        return "STOPPING=1\nSTATUS=" + status.strFailure;
    std::string strText = "STOPPING=1\nSTATUS=Stopped";
    if (status.dwExitCode != 0)
        strText +=
            ", error " + std::to_string(status.dwExitCode) + " (" + std::to_string(status.dwSpecificExitCode) + ")";
    return strText;
}

std::string ManagersSocket()
{
    bool bPresent = false;
    return EnvironmentVariable("NOTIFY_SOCKET", bPresent);
}

/// sd_notify(3) would wait for as long as the manager reads nothing.
bool Notify(const std::string& strNotification, bool bWait = false)
{
    const std::string strSocket = ManagersSocket();
    if (strSocket.empty())
        return true;
    SLocalAddress address;
    if (!address.Set(strSocket.c_str()))
        return false;
    const CDescriptor descriptor(OpenLocalDatagrams(LONGEST_WAIT));
    return (descriptor.IsValid() && SendLocalDatagram(descriptor.Get(), address, strNotification, bWait)) ||
           FailWithErrno();
}

} // namespace

bool ReportServiceStatus(const SServiceStatus& status) { return Notify(Notification(status), true); }

bool ReportWork(std::string_view line) { return Notify("STATUS=" + std::string(line)); }

bool ReportAlive() { return Notify("WATCHDOG=1"); }

bool HasServiceManager() { return !ManagersSocket().empty(); }

unsigned WatchdogMillis()
{
    uint64_t ui64Micros = 0;
    if (sd_watchdog_enabled(0, &ui64Micros) <= 0)
        return 0;
    return static_cast<unsigned>(std::clamp<uint64_t>(ui64Micros / MICROSECONDS_PER_MILLISECOND, 1, INT_MAX));
}

} // namespace Platform
