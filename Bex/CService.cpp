#include "Bex/CService.h"

#include "Bex/CActivity.h"
#include "Bex/CErrorLines.h"
#include "Bex/CNullPointerException.h"
#include "Bex/FrozenLine.h"
#include "Bex/TextFunctions.h"
#include "Platform/CNativeThread.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CService";
constexpr FrozenLine DISPATCHER_FAILED_LINE = 462;
constexpr unsigned ACCEPTED_CONTROLS = 7; ///< stop, pause and continue, shutdown
constexpr uint32_t SERVICE_SPECIFIC_ERROR = 1066;
constexpr unsigned POLL = 100; ///< milliseconds

std::atomic<CService*> s_pInstance = nullptr;

bool IsStop(unsigned dwControl)
{
    return dwControl == Platform::CONTROL_STOP || dwControl == Platform::CONTROL_SHUTDOWN;
}

} // namespace

/// Waits, once the start-up is over, for controls. Its owner goes back to the main thread's work only after the
/// thread has ended.
class CService::CDispatcher
{
public:
    CDispatcher() : m_pThread(Platform::CNativeThread::Create(&CDispatcher::Procedure, this)) {}
    ~CDispatcher()
    {
        m_end.Set();
        if (m_pThread)
            m_pThread->Join();
    }
    CDispatcher(const CDispatcher&) = delete;
    CDispatcher& operator=(const CDispatcher&) = delete;

    bool IsValid() const { return m_pThread != nullptr; } ///< false: LastError
    /// Ends the start-up: when it returns, the service runs and controls are handled.
    void Open()
    {
        m_open.Set();
        m_opened.Wait(Platform::INFINITE);
    }

private:
    static void Procedure(void* pDispatcher) { static_cast<CDispatcher*>(pDispatcher)->Dispatch(); }

    void Dispatch()
    {
        const CActivity activity("dispatcher");
        WaitForAny({&m_open.Waitable(), &m_end.Waitable()}, Platform::INFINITE);
        if (!m_open.IsSet())
            return;
        Required().BeginRunning();
        m_opened.Set();
        while (!m_end.IsSet() && !Required().m_stopped.IsSet()) { // nothing starts again after the stop
            CService& service = Required();
            unsigned dwControl = 0;
            if (service.NextControl(dwControl))
                service.HandleControl(dwControl);
            else
                WaitForAny({&service.m_source, &m_end.Waitable()}, Platform::INFINITE);
        }
    }

    CEvent m_open;
    CEvent m_opened;
    CEvent m_end;
    std::unique_ptr<Platform::CNativeThread> m_pThread; // last: it uses the events
};

CService::CService(const char* pszShortName, const char* pszDisplayName)
    : m_strShortName(pszShortName), m_strDisplayName(pszDisplayName)
{
    s_pInstance = this;
}

CService::~CService() { s_pInstance = nullptr; }

CService* CService::Instance() { return s_pInstance; }

CService& CService::Required()
{
    CService* const pService = Instance();
    if (pService == nullptr)
        ThrowNullPointerException(SOURCE_FILE, __LINE__);
    return *pService;
}

int CService::Run()
{
    while (IsRunning())
        m_stopAsked.Wait(POLL);
    return 0;
}

int CService::Main()
{
    constexpr int ALL_INSTALL_ARGUMENTS = 5;
    const char* const pszFirst = Argument(1);
    const std::string_view strFirst = pszFirst != nullptr ? pszFirst : "";
    if (EqualNoCase(strFirst, "-debug"))
        return RunInConsole();
    if (EqualNoCase(strFirst, "-install")) {
        Platform::ReleaseControlSignals();
        const bool bOwn = ArgumentCount() >= ALL_INSTALL_ARGUMENTS;
        Install(bOwn ? Argument(2) : nullptr, bOwn ? Argument(3) : nullptr, bOwn ? Argument(4) : nullptr);
    } else if (EqualNoCase(strFirst, "-uninstall")) {
        Platform::ReleaseControlSignals();
        Uninstall(Argument(2));
    } else if (EqualNoCase(strFirst, "-?")) {
        Platform::ReleaseControlSignals();
        Usage();
    } else {
        return RunAsService();
    }
    return 0;
}

int CService::RunInConsole()
{
    m_bDebug = true;
    const bool bOpen = m_source.Open(Platform::ERunMode::Console);
    CDispatcher dispatcher;
    if (!bOpen || !dispatcher.IsValid()) {
        std::fprintf(stderr, "SetConsoleCtrlHandler failed in %s:%d with error %d\n", SOURCE_FILE, __LINE__,
                     static_cast<int>(Platform::LastError().dwSysError));
        return 1;
    }
    return OnStart() ? RunUntilStopped(dispatcher) : 1;
}

int CService::RunAsService()
{
    const bool bOpen = m_source.Open(Platform::ERunMode::Service);
    CDispatcher dispatcher;
    if (!bOpen || !dispatcher.IsValid()) {
        std::fprintf(stderr, "StartServiceCtrlDispatcher failed in %s:%d with error %d", SOURCE_FILE,
                     DISPATCHER_FAILED_LINE, static_cast<int>(Platform::LastError().dwSysError));
        return 1;
    }
    ServiceMain(dispatcher);
    return 0;
}

void CService::ServiceMain(CDispatcher& dispatcher)
{
    if (Report(Platform::EServiceState::StartPending)) {
        std::srand(static_cast<unsigned>(Platform::NowSeconds()));
        auto pErrors = std::make_unique<CErrorLines>();
        if (!OnStart()) {
            TellFailedStart(pErrors->Text());
        } else {
            pErrors.reset();
            const int iResult = RunUntilStopped(dispatcher);
            if (iResult != 0) {
                const std::lock_guard lock(m_statusMutex);
                m_status.dwExitCode = SERVICE_SPECIFIC_ERROR;
                m_status.dwSpecificExitCode = static_cast<uint32_t>(iResult);
            }
        }
    }
    Report(Platform::EServiceState::Stopped, 0);
}

/// The exit code tells the manager of an ordinary end: the reason is in the last status, and on standard error.
void CService::TellFailedStart(const std::string& strWhy)
{
    if (strWhy.empty())
        return;
    const std::lock_guard lock(m_statusMutex);
    m_status.strFailure = "Start failed: " + strWhy;
    std::fprintf(stderr, "%s\n", m_status.strFailure.c_str());
}

int CService::RunUntilStopped(CDispatcher& dispatcher)
{
    dispatcher.Open();
    const int iResult = Run();
    m_stopped.Wait(Platform::INFINITE);
    return iResult;
}

bool CService::Report(Platform::EServiceState state, unsigned dwWaitHint)
{
    using Platform::EServiceState;
    if (m_bDebug || state == EServiceState::None)
        return true;
    const std::lock_guard lock(m_statusMutex);
    const bool bSettled = state == EServiceState::Running || state == EServiceState::Stopped;
    m_status.state = state;
    m_status.dwAcceptedControls = state == EServiceState::StartPending ? 0 : ACCEPTED_CONTROLS;
    m_status.dwCheckPoint = bSettled ? 0 : m_status.dwCheckPoint + 1;
    m_status.dwWaitHint = dwWaitHint;
    m_strWork.clear();
    return ReportStatus();
}

bool CService::ReportStatus()
{
    m_bMissed = !Platform::ReportServiceStatus(m_status);
    return !m_bMissed;
}

void CService::ReportWork(const std::string& strLine)
{
    const std::lock_guard lock(m_statusMutex);
    if (m_bMissed) // the end of a restart, for which no descriptor was left: the manager waits for it
        ReportStatus();
    if (m_status.state == Platform::EServiceState::Running && !m_status.bReloading && m_strWork != strLine)
        m_strWork = Platform::ReportWork(strLine) ? strLine : "";
}

bool CService::ReportAgain(bool bReloading)
{
    Platform::EServiceState state;
    {
        const std::lock_guard lock(m_statusMutex);
        m_status.bReloading = bReloading;
        state = m_status.state;
    }
    return Report(state, 0);
}

void CService::BeginRunning()
{
    RefuseWaitingControls();
    m_running.Set();
    Report(Platform::EServiceState::Running, 0);
}

bool CService::NextControl(unsigned& dwControl)
{
    dwControl = std::exchange(m_dwDeferred, 0);
    return dwControl != 0 || m_source.Take(dwControl);
}

/// What came meanwhile is looked at before the end of a start-up or control is told: who waits for the end may send the
/// next one.
void CService::RefuseWaitingControls()
{
    unsigned dwControl = 0;
    while (m_source.Take(dwControl)) {
        if (m_dwDeferred == 0 && IsStop(dwControl))
            m_dwDeferred = dwControl;
    }
}

void CService::HandleControl(unsigned dwControl)
{
    const CActivity::CStep step("handles control %u", dwControl);
    switch (dwControl) {
    case Platform::CONTROL_STOP:
    case Platform::CONTROL_SHUTDOWN:
        return HandleStop(dwControl == Platform::CONTROL_SHUTDOWN);
    case Platform::CONTROL_PAUSE:
        return HandlePause();
    case Platform::CONTROL_CONTINUE:
        return HandleContinue();
    case Platform::CONTROL_INTERROGATE:
        ReportAgain();
        return;
    default:
        HandleCustomControl(dwControl);
    }
}

void CService::HandleStop(bool bShutdown)
{
    if (!IsRunning())
        return;
    Report(Platform::EServiceState::StopPending);
    m_running.Reset();
    m_stopping.Set();
    m_stopAsked.Set();
    if (bShutdown)
        OnShutdown();
    else
        OnStop();
    m_stopped.Set();
    m_stopping.Reset();
}

void CService::HandlePause()
{
    if (!IsRunning())
        return;
    Report(Platform::EServiceState::PausePending);
    OnPause();
    m_paused.Set();
    RefuseWaitingControls();
    Report(Platform::EServiceState::Paused, 0);
}

void CService::HandleContinue()
{
    if (!IsPaused() || !IsRunning())
        return;
    Report(Platform::EServiceState::ContinuePending);
    OnContinue();
    m_paused.Reset();
    RefuseWaitingControls();
    Report(Platform::EServiceState::Running, 0);
}

void CService::HandleCustomControl(unsigned dwControl)
{
    ReportAgain(dwControl == Platform::CONTROL_RESTART);
    OnCustomControl(dwControl);
    RefuseWaitingControls();
    if (dwControl == Platform::CONTROL_RESTART)
        ReportAgain();
}

} // namespace Bex
