#include "Tobix/CMDAService.h"

#include "Bex/CActivity.h"
#include "Bex/CException.h"
#include "Bex/CFileException.h"
#include "Bex/CWithheldLog.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Common/MailHlpr.h"
#include "Platform/CControlSource.h"
#include "Platform/Clock.h"
#include "Platform/FileSystem.h"
#include "Platform/Process.h"
#include "Platform/ServiceStatus.h"
#include "Tobix/CSetUp.h"
#include "Tobix/LogSetUp.h"
#include "Tobix/TableReload.h"

#include <exception>
#include <functional>

namespace {

constexpr char SHORT_NAME[] = "Tobix";
constexpr char DISPLAY_NAME[] = "marlune Mail Delivery Agent";
constexpr unsigned PAUSE_MILLIS = 1000;
constexpr unsigned IDLE_MILLIS = 1000;
constexpr unsigned STOP_WAIT_HINT = 2000;
constexpr uint64_t LONGEST_LOADING = 1'800'000; ///< of tables and mailbox trees, on slow volumes

void LogState(const char* pszWhat)
{
    Bex::LogNotice(Bex::MainLog(), "marlune Mail Delivery Agent %s %s...", CCommonService::VersionText().Text(),
                   pszWhat);
}

bool RunsHourlyCleanup() { return Config().GetFlag(Keys::HOURLY_CLEANUP) && !Config().GetFlag(Keys::AUTO_TRANSPORT); }

} // namespace

/// Runs the script of the outgoing directory in its first pass and then once an hour, at the minute it began in. One
/// that takes longer is waited for before the next, but holds nothing else up.
class CMDAService::CHourlyCleanup
{
public:
    ~CHourlyCleanup()
    {
        if (m_pRun)
            m_pRun->Stop();
        Bex::CThread::Destroy(std::move(m_pRun));
    }
    void Pass()
    {
        const bool bThatMinute = Platform::LocalNow().iMinute == m_iStartMinute;
        if ((m_bFirst || (bThatMinute && m_bDue)) && !StartRun())
            return;
        m_bDue = !bThatMinute;
        m_bFirst = false;
    }

private:
    class CRun : public Bex::CThread
    {
        void Body() override { RunPostScript(Config().GetPath(Keys::OUTGOING_DIR), "", ScriptsRunInParallel()); }
    };
    /// False when something is short: the next pass tries again.
    bool StartRun()
    {
        try {
            if (!m_pRun)
                m_pRun = std::make_unique<CRun>();
        } catch (const Bex::CException&) {
            return false;
        }
        if (!m_bStarted || m_pRun->HasFinished())
            m_bStarted = m_pRun->Start("hourly cleanup");
        return m_bStarted;
    }

    int m_iStartMinute = Platform::LocalNow().iMinute;
    bool m_bFirst = true;
    bool m_bDue = false;
    bool m_bStarted = false;
    std::unique_ptr<CRun> m_pRun;
};

CMDAService::CMDAService() : CCommonService(SHORT_NAME, DISPLAY_NAME) {}

void CMDAService::Usage() { PrintUsage("TOBIX.EXE"); }

/// The file goes here, not with the object: a thread that was given up keeps the objects to the end of the process.
int CMDAService::Main()
{
    const int iResult = CCommonService::Main();
    StopControlServer();
    if (m_pReporter)
        m_pReporter->Stop();
    Bex::CThread::Destroy(std::move(m_pReporter));
    m_pidFile.Discard();
    return iResult;
}

bool CMDAService::OnStart()
{
    Platform::RaiseDescriptorLimit();
    PinConfigurationDirectory();
    CreatePidFile();
    StartPending();
    if (IsDebug())
        LogSetUp::ToConsole();
    else
        LogSetUp::ToLocalSyslog();
    LogState("launching");
    StartPending();
    m_strFileName = ConfigurationFileName(Arguments(), CONFIGURATION_FILE);
    if (!EnterConfigurationDirectory())
        return false;
    HandOverConfiguration();
    CSetUp setUp(CSetUp::EMode::Start, IsDebug(), m_strDirectory, m_strFileName, [this] { StartPending(); });
    if (!setUp.Run() || !StartReporter() || !StartWorkers() || !StartControlServer())
        return false;
    Bex::LogNotice(Bex::MainLog(), "marlune Mail Delivery Agent launched and fully operational");
    return true;
}

bool CMDAService::StartWorkers()
{
    const auto lock = LockWorkersAndTables(); // the status reporter looks at them
    m_iRunningSince = Platform::NowSeconds();
    return m_workers.Start(Reporter(Platform::EServiceState::StartPending));
}

/// The working directory changes, and the programs that are started have others.
void CMDAService::PinConfigurationDirectory()
{
    bool bPresent = false;
    const std::string strDirectory = Platform::EnvironmentVariable(Bex::CONFIG_DIRECTORY_VARIABLE, bPresent);
    if (!strDirectory.empty())
        Platform::SetEnvironmentVariable(Bex::CONFIG_DIRECTORY_VARIABLE, Platform::AbsolutePath(strDirectory).c_str());
}

void CMDAService::HandOverConfiguration() const
{
    const Bex::CSimpleString strPath = Bex::JoinPath(m_strDirectory, Platform::NativePath(m_strFileName));
    Platform::SetEnvironmentVariable(CONFIGURATION_VARIABLE, Platform::AbsolutePath(strPath).c_str());
}

/// Nobody depends on the file: what goes wrong with it is ignored.
void CMDAService::CreatePidFile()
{
    const Bex::CSimpleString strDirectory = ConfigDirectory();
    if (strDirectory.IsEmpty())
        return;
    const Bex::CSimpleString strId = Bex::CSimpleString::Formatted("%u", Platform::CurrentProcessId());
    const Bex::CSimpleString strPath = Bex::JoinPath(strDirectory, "Tobix.pid");
    try {
        if (Bex::CFile::Exists(strPath)) // what a crash has left; a second daemon must not touch the first one's
            Bex::CFile::RemoveUnlessInUse(strPath);
        m_pidFile.Open(strPath, Bex::CFile::typeText | Bex::CFile::modeReadWrite | Bex::CFile::modeNew |
                                    Bex::CFile::shareDenyWrite);
        m_pidFile.Write(strId.Text(), strId.Length());
    } catch (const Bex::CFileException&) {
    }
}

bool CMDAService::EnterConfigurationDirectory()
{
    m_strDirectory = ConfigurationDirectory();
    if (m_strDirectory.IsEmpty()) {
        Bex::LogError(Bex::MainLog(), "could not detect configuration directory");
        return false;
    }
    if (!Platform::SetWorkingDirectory(m_strDirectory.Text())) {
        Bex::LogError(Bex::MainLog(), "could not change to configuration directory");
        return false;
    }
    return true;
}

void CMDAService::OnStop()
{
    const Bex::CActivity::CStep step("shuts down");
    LogState("shutting down");
    StopControlServer();
    Report(Platform::EServiceState::StopPending, STOP_WAIT_HINT);
    {
        const auto lock = LockWorkersAndTables();
        m_workers.Stop(Reporter(Platform::EServiceState::StopPending));
    }
    Bex::LogNotice(Bex::MainLog(), "marlune Mail Delivery Agent shut down");
}

CWorkers::CReport CMDAService::Reporter(Platform::EServiceState state)
{
    return [this, state](unsigned dwWaitHint) { Report(state, dwWaitHint); };
}

void CMDAService::OnCustomControl(unsigned dwControl)
{
    if (dwControl != Platform::CONTROL_RESTART || !Config().GetFlag(Keys::ALLOW_CONFIG_RESTART))
        return;
    const Bex::CActivity::CStep step("restarts");
    const auto lock = LockWorkersAndTables();
    Bex::CActivity::MayTake(LONGEST_LOADING);
    Restart();
}

/// What is short meanwhile is made up for by the main loop: workers that could not be started, tables and settings that
/// could not be read.
void CMDAService::Restart()
{
    LogState("restarting");
    m_workers.Stop(Reporter(Platform::EServiceState::None)); // to the manager the service runs all the while
    CSetUp(CSetUp::EMode::Restart, IsDebug(), ConfigurationDirectory(), m_strFileName, [] {}).Run();
    m_unreadSettings.Tried(!Config().HasFileChanged(), Platform::TickCount());
    m_workers.StartMissing();
    Bex::LogNotice(Bex::MainLog(), "marlune Mail Delivery Agent restarted and fully operational");
    m_bLook = true;
    TellMissing();
}

/// The service manager hears it with what there is to do.
void CMDAService::TellMissing()
{
    Bex::CSimpleString strMissing = m_workers.Missing();
    m_missingWorkers.Tried(strMissing.IsEmpty(), Platform::TickCount());
    if (m_unreadSettings.IsPending())
        strMissing += strMissing.IsEmpty() ? "new settings" : ", new settings";
    if (strMissing == m_strMissing)
        return;
    m_strMissing = strMissing;
    if (strMissing.IsEmpty())
        Bex::LogNotice(Bex::MainLog(), "the restart is complete now");
    else
        Bex::LogError(Bex::MainLog(), "restarted without: %s; this is tried again", strMissing.Text());
}

int CMDAService::Run()
{
    const Bex::CActivity activity("main loop");
    CHourlyCleanup cleanup;
    CWatchedDirectory directory(m_strDirectory);
    while (IsRunning()) {
        WaitWhilePaused();
        CompleteRestart();
        if (RunsHourlyCleanup()) {
            cleanup.Pass();
            StopEvent().Wait(IDLE_MILLIS);
        } else if (!TakeUpChanges(directory)) {
            Bex::WaitForAny({&StopEvent().Waitable(), &directory.Waitable(), &Users().ChangeMonitor().Waitable()},
                            IDLE_MILLIS);
        }
    }
    return 0;
}

void CMDAService::WaitWhilePaused() const
{
    if (!IsPaused())
        return;
    const Bex::CActivity::CStep step("pauses");
    while (IsPaused() && IsRunning())
        StopEvent().Wait(PAUSE_MILLIS);
}

/// A restart that was short of something is completed; one whose settings could not be read is made again.
void CMDAService::CompleteRestart()
{
    const auto lock = LockWorkersAndTables();
    Bex::CActivity::MayTake(LONGEST_LOADING);
    const uint64_t nTicks = Platform::TickCount();
    if (!IsRunning())
        return;
    if (m_unreadSettings.IsDue(nTicks)) {
        if (CSetUp::CanRead(Config().FileName()))
            return Restart();
        m_unreadSettings.Tried(false, nTicks);
    }
    if (!m_missingWorkers.IsDue(nTicks))
        return;
    const Bex::CSimpleString strMissing = m_workers.Missing();
    Bex::CWithheldLog log;
    m_workers.StartMissing();
    if (m_workers.Missing() != strMissing)
        log.Tell();
    TellMissing();
}

/// The other thread, which holds them, has an activity of its own.
std::unique_lock<std::mutex> CMDAService::LockWorkersAndTables()
{
    Bex::CActivity::Waits(Platform::INFINITE);
    std::unique_lock lock(m_workersAndTables);
    Bex::CActivity::Alive();
    return lock;
}

/// False when nothing has changed. What changes while a restart loads the tables shows afterwards; what could not be
/// read is tried again, and that is told when it succeeds.
bool CMDAService::TakeUpChanges(CWatchedDirectory& directory)
{
    const auto lock = LockWorkersAndTables();
    const Bex::CActivity::CStep step("looks after the tables");
    Bex::CActivity::MayTake(LONGEST_LOADING);
    if (!IsRunning())
        return true;
    const bool bLook = std::exchange(m_bLook, false);
    const bool bDirectoryChanged = directory.MayHaveChanged() || bLook;
    const bool bTreeChanged = !bDirectoryChanged && Users().HasTreeChanged();
    if (!bDirectoryChanged && !bTreeChanged && !m_unreadTables.IsDue(Platform::TickCount()))
        return false;
    CInterceptor* const pInterceptor = m_workers.LocalAgent() ? &m_workers.LocalAgent()->Interceptor() : nullptr;
    std::optional<Bex::CWithheldLog> log;
    if (m_unreadTables.IsPending() && !bDirectoryChanged)
        log.emplace();
    const bool bDone = ReloadChangedTables(bTreeChanged, pInterceptor);
    m_unreadTables.Tried(bDone, Platform::TickCount());
    if (log && bDone)
        log->Tell();
    return true;
}

/// As the configuration that the service will run with names them at the time of the installation.
std::vector<Bex::CSimpleString> CMDAService::WritableDirectories(const std::vector<std::string>& arguments)
{
    Bex::CConfigFile& config = Config();
    const Bex::CSimpleString strFileName = ConfigurationFileName(arguments, CONFIGURATION_FILE);
    try {
        config.Load(Bex::JoinPath(ConfigurationDirectory(), Platform::NativePath(strFileName)));
    } catch (const Bex::CFileException&) { // the defaults apply
    }
    const SMailDirectories directories = SMailDirectories::FromConfiguration();
    std::vector<Bex::CSimpleString> writable{directories.strQueue,     directories.strError,
                                             directories.strFilter,    directories.strOutgoing,
                                             directories.strIntercept, config.GetPath(Keys::SPOOL_DIR)};
    if (const Bex::CSimpleString strLocks = config.GetPath(Keys::LOCK_DIR); !strLocks.IsEmpty())
        writable.push_back(strLocks);
    return writable;
}
