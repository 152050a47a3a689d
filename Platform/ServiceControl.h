#pragma once

#include "Platform/CEventHandle.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The service control manager, as this system has one: controls come as signals, the status goes to systemd when it
/// listens, and the services are unit files in one directory.
namespace Platform {

enum EServiceControl : unsigned {
    CONTROL_STOP = 1,
    CONTROL_PAUSE = 2,
    CONTROL_CONTINUE = 3,
    CONTROL_INTERROGATE = 4,
    CONTROL_SHUTDOWN = 5,
    CONTROL_RESTART = 129, ///< read the configuration again
};

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

/// Tells the service manager. True also when none listens (NOTIFY_SOCKET is not set); false: LastError.
bool ReportServiceStatus(const SServiceStatus& status);

struct SServiceEntry
{
    std::string strShortName;
    std::string strDisplayName;
    std::string strExecutable;
    std::string strParameters;                    ///< as on a command line
    std::string strConfigDirectory;               ///< for MAILCONFIGDIR; empty: the variable is not set
    std::vector<std::string> writableDirectories; ///< those that exist are writable, the rest of the system is not
};

/// The text of the unit file; here so that what is installed can be tested.
std::string ComposeUnit(const SServiceEntry& entry);

/// The installed services. Operations answer false and set LastError on failure; no object is kept open.
class CServiceRegistry
{
public:
    CServiceRegistry(); ///< the unit directory of the system, or the one that TOBIX_UNIT_DIR names

    bool Open() const; ///< may services be added and removed?
    bool Contains(std::string_view strShortName) const;
    bool Create(const SServiceEntry& entry) const; ///< automatic start; takes it back when it fails half-way
    bool IsRunning(std::string_view strShortName) const;
    bool Stop(std::string_view strShortName) const; ///< waits for it
    bool Delete(std::string_view strShortName) const;

private:
    std::string m_strDirectory;
    bool m_bManagerRuns; ///< and reads that directory; else only the files are kept
};

} // namespace Platform
