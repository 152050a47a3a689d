// What CMDAService tells of its work: to the service manager, and to the administrator's commands.

#include "Common/Globals.h"
#include "Platform/Clock.h"
#include "Platform/ServiceStatus.h"
#include "Tobix/CMDAService.h"

namespace {

constexpr uint64_t COMMAND_MILLIS = 5000;
constexpr unsigned COMMAND_NAP_MILLIS = 2;

} // namespace

/// Without one a manager that asks for signs of life would end the service.
bool CMDAService::StartReporter()
{
    if (IsDebug() || !Platform::HasServiceManager())
        return true;
    m_pReporter = std::make_unique<CStatusReporter>([this] { return DescribeWork(); });
    return m_pReporter->Start("status reporter");
}

/// None while the workers or the tables change.
std::optional<std::string> CMDAService::DescribeWork()
{
    const std::unique_lock lock(m_workersAndTables, std::try_to_lock);
    if (!lock.owns_lock())
        return std::nullopt;
    const std::string strWork = m_workers.Describe();
    return m_strMissing.IsEmpty() ? strWork : strWork + "; without: " + m_strMissing.Text();
}

bool CMDAService::StartControlServer()
{
    const Bex::CSimpleString strSocket = Config().GetPath(Keys::CONTROL_SOCKET);
    if (strSocket.IsEmpty())
        return true;
    const SDaemonHooks hooks{.Look = [this](SDaemonView& view) { return Look(view); },
                             .RebuildUsers = [this] { return RebuildUsers(); }};
    m_pControlServer = std::make_unique<CControlServer>(
        strSocket, [hooks](const std::string& strRequest) { return AnswerCommand(strRequest, hooks); });
    m_pControlServer->Listen(); // who is told that the service runs may ask it at once
    return m_pControlServer->Start("control server");
}

/// A command that is being answered has a second to end.
void CMDAService::StopControlServer()
{
    if (m_pControlServer && !m_pControlServer->Stop())
        m_pControlServer->Terminate();
    Bex::CThread::Destroy(std::move(m_pControlServer));
}

/// The main loop has them for moments again and again; for long only while a restart or large tables are read.
std::unique_lock<std::mutex> CMDAService::LockForCommand()
{
    const uint64_t nStarted = Platform::TickCount();
    std::unique_lock lock(m_workersAndTables, std::try_to_lock);
    while (!lock.owns_lock() && Platform::TickCount() - nStarted < COMMAND_MILLIS && !Bex::CThread::IsCallerStopped()) {
        Platform::SleepMillis(COMMAND_NAP_MILLIS);
        lock.try_lock();
    }
    return lock;
}

bool CMDAService::Look(SDaemonView& view)
{
    const auto lock = LockForCommand();
    if (!lock.owns_lock())
        return false;
    view.iRunningSince = m_iRunningSince;
    view.bPaused = IsPaused();
    view.strMissing = m_strMissing.View();
    view.strQueueDirectory = Config().GetPath(Keys::QUEUE_DIR).View();
    view.strOutgoingDirectory = Config().GetPath(Keys::OUTGOING_DIR).View();
    const auto Add = [&view](const char* pszName, const auto& table) {
        view.tables.push_back({pszName, std::string(table.FileName().View()), table.Count()});
    };
    Add("domains", LocalDomains());
    Add("backupdomains", BackupDomains());
    Add("aliases", Aliases());
    Add("filters", Filters());
    Add("smarthosts", SmartHosts());
    Add("masquerading", Masquerading());
    view.tables.push_back({"users", std::string(Config().GetPath(Keys::SPOOL_DIR).View()), Users().UserCount()});
    m_workers.Look(view);
    return true;
}

std::optional<bool> CMDAService::RebuildUsers()
{
    const auto lock = LockForCommand();
    return lock.owns_lock() ? std::optional(Users().BuildUserList()) : std::nullopt;
}
