#pragma once

#include "Bex/CLockFile.h"
#include "Common/CCommonService.h"
#include "Tobix/CControlServer.h"
#include "Tobix/CGrowingPause.h"
#include "Tobix/CStatusReporter.h"
#include "Tobix/CWatchedDirectory.h"
#include "Tobix/CWorkers.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>

/// The daemon: starts and stops the workers, and keeps the tables current in between.
///
/// There is one object, made before main runs. Start-up and the main loop run on the main thread, stop and restart on
/// the dispatcher's; the workers and the tables change under one mutex, which is free while the main loop waits.
class CMDAService : public CCommonService
{
public:
    CMDAService();

    int Main() override;
    int Run() override;

protected:
    void Usage() override;
    bool OnStart() override;
    void OnStop() override;
    void OnCustomControl(unsigned dwControl) override;
    std::vector<Bex::CSimpleString> WritableDirectories(const std::vector<std::string>& arguments) override;

private:
    class CHourlyCleanup;

    static void PinConfigurationDirectory();
    void HandOverConfiguration() const;
    void CreatePidFile();
    bool EnterConfigurationDirectory();
    bool StartReporter();
    bool StartWorkers();
    std::optional<std::string> DescribeWork();
    bool StartControlServer();
    void StopControlServer();
    bool Look(SDaemonView& view);
    std::optional<bool> RebuildUsers();
    void Restart();
    CWorkers::CReport Reporter(Platform::EServiceState state);
    void TellMissing();
    void StartPending() { Report(Platform::EServiceState::StartPending); }

    std::unique_lock<std::mutex> LockWorkersAndTables();
    std::unique_lock<std::mutex> LockForCommand();
    void WaitWhilePaused() const;
    void CompleteRestart();
    bool TakeUpChanges(CWatchedDirectory& directory);

    CLockFile m_pidFile;
    Bex::CSimpleString m_strDirectory; ///< of the configuration
    Bex::CSimpleString m_strFileName;  ///< of the configuration
    std::mutex m_workersAndTables;
    CWorkers m_workers;
    Bex::CSimpleString m_strMissing; ///< since the restart, as was told
    CGrowingPause m_missingWorkers;
    CGrowingPause m_unreadSettings;
    CGrowingPause m_unreadTables;
    bool m_bLook = false;                             ///< for changed tables, though no change was reported
    int64_t m_iRunningSince = 0;                      ///< seconds since 1970-01-01 UTC
    std::unique_ptr<CControlServer> m_pControlServer; ///< only where a socket is configured
    std::unique_ptr<CStatusReporter> m_pReporter;     ///< only where a service manager listens
};
