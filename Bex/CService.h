#pragma once

#include "Bex/CEvent.h"
#include "Bex/CProcess.h"
#include "Platform/CControlSource.h"
#include "Platform/ServiceStatus.h"

#include <mutex>
#include <string>
#include <vector>

namespace Bex {

/// A program that runs as a service or, for debugging, in the console, and installs and removes itself.
///
/// Its one object is a static one, so that the entry point and the control dispatcher find it. OnStart and Run are
/// called on the main thread, OnStop to OnCustomControl on the dispatcher's thread, one control at a time. A control
/// that comes while another one is handled or the start-up runs is ignored, except that a stop or shutdown is carried
/// out afterwards. The two threads meet in the events alone. What the hooks throw ends the process with a crash report.
class CService : public CProcess
{
public:
    CService(const char* pszShortName, const char* pszDisplayName);
    ~CService() override;

    static CService* Instance(); ///< null when there is none

    /// Returns when the running event is reset; the result is the service's exit code.
    int Run() override;
    virtual int Main(); ///< does what the command line says; the result is the process's exit code

    bool IsDebug() const { return m_bDebug; } ///< console mode: no status reports
    bool IsRunning() const { return m_running.IsSet(); }
    bool IsPaused() const { return m_paused.IsSet(); }
    bool IsStopping() const { return m_stopping.IsSet(); }
    /// Set when a stop or shutdown begins, before OnStop, and never reset: what idle loops wait for.
    const CEvent& StopEvent() const { return m_stopAsked; }

    const CSimpleString& ShortName() const { return m_strShortName; }
    const CSimpleString& DisplayName() const { return m_strDisplayName; }

    /// Reports to the service manager; does nothing, successfully, in console mode and for the state None.
    bool Report(Platform::EServiceState state, unsigned dwWaitHint = DEFAULT_WAIT_HINT);
    static constexpr unsigned DEFAULT_WAIT_HINT = 1000; ///< milliseconds
    /// While it runs, and neither pauses nor restarts: what it is at, for the manager's user. Told when it has changed.
    void ReportWork(const std::string& strLine);

protected:
    virtual void Usage() {}
    virtual bool OnStart() { return true; }
    virtual void OnStop() {}
    virtual void OnPause() {}
    virtual void OnContinue() {}
    virtual void OnShutdown() { OnStop(); }
    virtual void OnCustomControl(unsigned /*dwControl*/) {}
    virtual void OnInstalled() {}
    virtual void OnUninstalled() {}
    /// The directories, besides the program's and the configuration's, that the service may write to when it is
    /// installed to run with these arguments.
    virtual std::vector<CSimpleString> WritableDirectories(const std::vector<std::string>& /*arguments*/) { return {}; }

private:
    class CDispatcher; ///< hands the process's controls to the one service object, on a thread of its own

    static CService& Required(); ///< raises CNullPointerException when there is none
    int RunInConsole();
    int RunAsService();
    int RunUntilStopped(CDispatcher& dispatcher);
    void ServiceMain(CDispatcher& dispatcher);
    void Install(const char* pszShortName, const char* pszDisplayName, const char* pszParameters); ///< null: default
    void Uninstall(const char* pszShortName);                                                      ///< null: default

    void BeginRunning();
    bool NextControl(unsigned& dwControl); ///< false: there is none
    void HandleControl(unsigned dwControl);
    void HandleStop(bool bShutdown);
    void HandlePause();
    void HandleContinue();
    void HandleCustomControl(unsigned dwControl);
    void RefuseWaitingControls();
    bool ReportAgain(bool bReloading = false);
    bool ReportStatus(); ///< with the mutex held
    void TellFailedStart(const std::string& strWhy);

    bool m_bDebug = false;
    CEvent m_running;
    CEvent m_stopping;
    CEvent m_stopped;
    CEvent m_paused;
    CEvent m_stopAsked;
    Platform::CControlSource m_source; ///< the dispatcher alone takes from it
    unsigned m_dwDeferred = 0;         ///< the dispatcher's: the stop or shutdown that came during something else
    std::mutex m_statusMutex;          ///< around the status and its reports
    Platform::SServiceStatus m_status;
    bool m_bMissed = false; ///< the last report of it failed
    std::string m_strWork;  ///< the line told last; empty: another status was since
    CSimpleString m_strShortName;
    CSimpleString m_strDisplayName;
};

} // namespace Bex
