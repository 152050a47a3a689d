#include "Tobix/CMDAService.h"

#include "Bex/CActivity.h"
#include "Bex/CException.h"
#include "Bex/CFileException.h"
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
#include "Tobix/ThreadControl.h"

#include <exception>
#include <functional>
#include <new>

namespace {

constexpr char SHORT_NAME[] = "Tobix";
constexpr char DISPLAY_NAME[] = "marlune Mail Delivery Agent";
constexpr char LOCAL_AGENT[] = "local delivery agent";
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
        m_pRun->Stop();
        Bex::CThread::Destroy(std::move(m_pRun));
    }
    void Pass()
    {
        const bool bThatMinute = Platform::LocalNow().iMinute == m_iStartMinute;
        if (m_bFirst || (bThatMinute && m_bDue))
            StartRun();
        m_bDue = !bThatMinute;
        m_bFirst = false;
    }

private:
    class CRun : public Bex::CThread
    {
        void Body() override { RunPostScript(Config().GetPath(Keys::OUTGOING_DIR), "", ScriptsRunInParallel()); }
    };
    void StartRun()
    {
        if (!m_bStarted || m_pRun->HasFinished())
            m_bStarted = m_pRun->Start("hourly cleanup");
    }

    int m_iStartMinute = Platform::LocalNow().iMinute;
    bool m_bFirst = true;
    bool m_bDue = false;
    bool m_bStarted = false;
    std::unique_ptr<CRun> m_pRun = std::make_unique<CRun>(); ///< now, when nothing is short
};

CMDAService::CMDAService() : CCommonService(SHORT_NAME, DISPLAY_NAME) {}

/// A start-up that failed leaves its workers running up to the end of the process.
CMDAService::~CMDAService() { Bex::CThread::Destroy(std::move(m_pLocalAgent)); }

void CMDAService::Usage() { PrintUsage("TOBIX.EXE"); }

/// The file goes here, not with the object: a thread that was given up keeps the objects to the end of the process.
int CMDAService::Main()
{
    const int iResult = CCommonService::Main();
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
    if (!setUp.Run() || !StartReporter() || !StartWorkers())
        return false;
    Bex::LogNotice(Bex::MainLog(), "marlune Mail Delivery Agent launched and fully operational");
    return true;
}

/// When it fails those that were started are stopped, as at an end.
bool CMDAService::StartWorkers()
{
    const auto lock = LockWorkersAndTables(); // the status reporter looks at them
    if (!StartLocalAgent())
        return false;
    StartPending();
    if (StartConfiguredTransport())
        return true;
    RequestStops();
    StopLocalAgent(Platform::EServiceState::StartPending);
    StopRemoteDelivery(Platform::EServiceState::StartPending);
    return false;
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

bool CMDAService::StartConfiguredTransport()
{
    return !Config().GetFlag(Keys::AUTO_TRANSPORT) || StartRemoteDelivery();
}

bool CMDAService::StartLocalAgent()
{
    if (m_pLocalAgent) {
        Bex::LogError(Bex::MainLog(), "%s already instantiated", LOCAL_AGENT);
        return false;
    }
    try {
        m_pLocalAgent = std::make_unique<CLocalAgent>(m_remoteDelivery.NewFiles());
    } catch (const Bex::CException&) {
    } catch (const std::bad_alloc&) {
    }
    if (!m_pLocalAgent) {
        Bex::LogError(Bex::MainLog(), "could not instantiate %s", LOCAL_AGENT);
        return false;
    }
    if (ThreadControl::Start(*m_pLocalAgent, LOCAL_AGENT))
        return true;
    m_pLocalAgent.reset();
    return false;
}

bool CMDAService::StopLocalAgent(Platform::EServiceState state)
{
    return ThreadControl::Stop(std::move(m_pLocalAgent), LOCAL_AGENT, [this, state] { Report(state); });
}

/// The workers end at the same time; they are then waited for one by one.
void CMDAService::RequestStops()
{
    if (m_pLocalAgent)
        m_pLocalAgent->RequestStop();
    m_remoteDelivery.RequestStops();
}

bool CMDAService::StartRemoteDelivery() { return m_remoteDelivery.StartAgent() && m_remoteDelivery.StartThreads(); }

void CMDAService::StopRemoteDelivery(Platform::EServiceState state)
{
    if (!m_remoteDelivery.HasAgent())
        return;
    m_remoteDelivery.StopThreads([this, state] { Report(state); });
    if (state != Platform::EServiceState::None)
        Report(state, STOP_WAIT_HINT);
    m_remoteDelivery.StopAgent([this, state] { Report(state); });
}

void CMDAService::OnStop()
{
    const Bex::CActivity::CStep step("shuts down");
    LogState("shutting down");
    Report(Platform::EServiceState::StopPending, STOP_WAIT_HINT);
    {
        const auto lock = LockWorkersAndTables();
        RequestStops();
        StopLocalAgent(Platform::EServiceState::StopPending);
        Report(Platform::EServiceState::StopPending, STOP_WAIT_HINT);
        StopRemoteDelivery(Platform::EServiceState::StopPending);
    }
    Bex::LogNotice(Bex::MainLog(), "marlune Mail Delivery Agent shut down");
}

void CMDAService::OnCustomControl(unsigned dwControl)
{
    if (dwControl != Platform::CONTROL_RESTART || !Config().GetFlag(Keys::ALLOW_CONFIG_RESTART))
        return;
    const Bex::CActivity::CStep step("restarts");
    const auto lock = LockWorkersAndTables();
    Bex::CActivity::MayTake(LONGEST_LOADING);
    LogState("restarting");
    RequestStops();
    StopLocalAgent(Platform::EServiceState::None);
    StopRemoteDelivery(Platform::EServiceState::None);
    CSetUp(CSetUp::EMode::Restart, IsDebug(), ConfigurationDirectory(), m_strFileName, [] {}).Run();
    StartLocalAgent(); // without a report: to the manager the service runs all the while
    StartConfiguredTransport();
    Bex::LogNotice(Bex::MainLog(), "marlune Mail Delivery Agent restarted and fully operational");
}

int CMDAService::Run()
{
    const Bex::CActivity activity("main loop");
    CHourlyCleanup cleanup;
    CWatchedDirectory directory(m_strDirectory);
    while (IsRunning()) {
        WaitWhilePaused();
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

/// The other thread, which holds them, has an activity of its own.
std::unique_lock<std::mutex> CMDAService::LockWorkersAndTables()
{
    Bex::CActivity::Waits(Platform::INFINITE);
    std::unique_lock lock(m_workersAndTables);
    Bex::CActivity::Alive();
    return lock;
}

/// False when nothing has changed. What changes while a restart loads the tables shows afterwards.
bool CMDAService::TakeUpChanges(CWatchedDirectory& directory)
{
    const auto lock = LockWorkersAndTables();
    const Bex::CActivity::CStep step("looks after the tables");
    Bex::CActivity::MayTake(LONGEST_LOADING);
    if (!IsRunning())
        return true;
    const bool bDirectoryChanged = directory.MayHaveChanged();
    const bool bTreeChanged = !bDirectoryChanged && Users().HasTreeChanged();
    if (!bDirectoryChanged && !bTreeChanged)
        return false;
    ReloadChangedTables(bTreeChanged, m_pLocalAgent ? &m_pLocalAgent->Interceptor() : nullptr);
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
    return {directories.strQueue,    directories.strError,     directories.strFilter,
            directories.strOutgoing, directories.strIntercept, config.GetPath(Keys::SPOOL_DIR)};
}
