#include "Platform/CChildProcess.h"

#include "Platform/CEventHandle.h"
#include "Platform/CStartsNoChild.h"
#include "Platform/Clock.h"
#include "Platform/CommandLine.h"
#include "Platform/Errors.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/process/CReaper.h"
#include "Platform/linux/process/DescriptorLimit.h"
#include "Platform/linux/process/ProgramSearch.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <vector>

namespace Platform {

namespace {

constexpr uint32_t KILLED_BY_US = 0xFFFFFFFF;
constexpr uint32_t DIED_OF_SIGNAL = 0x80; ///< plus the signal's number, as the shell counts
constexpr unsigned LONGEST_DYING = 1000;  ///< milliseconds
constexpr uint64_t LONGEST_LOOK = 60'000; ///< milliseconds of one poll
constexpr unsigned NAP = 20;              ///< milliseconds between looks at a child that cannot be polled

/// How every child starts: in a session of its own, so that what it signals to its group does not reach this process,
/// with default signals, nothing to read, in its directory.
class CSpawnSettings
{
public:
    explicit CSpawnSettings(const char* pszWorkingDirectory)
    {
        sigset_t signals;
        posix_spawnattr_init(&m_attributes);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&m_attributes, &signals);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&m_attributes, &signals);
        posix_spawn_file_actions_init(&m_actions);
        m_iErrno = posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        if (m_iErrno == 0 && pszWorkingDirectory != nullptr && *pszWorkingDirectory != '\0')
            m_iErrno = posix_spawn_file_actions_addchdir_np(&m_actions, pszWorkingDirectory);
        if (m_iErrno == 0) // libraries open sockets that an exec does not close
            m_iErrno = posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1);
    }
    ~CSpawnSettings()
    {
        posix_spawn_file_actions_destroy(&m_actions);
        posix_spawnattr_destroy(&m_attributes);
    }
    CSpawnSettings(const CSpawnSettings&) = delete;
    CSpawnSettings& operator=(const CSpawnSettings&) = delete;

    /// 0, or the errno of the step that failed in the child.
    int Spawn(pid_t& iProcess, const char* pszPath, std::vector<std::string>& arguments) const
    {
        if (m_iErrno != 0)
            return m_iErrno;
        std::vector<char*> pointers;
        pointers.reserve(arguments.size() + 1);
        for (std::string& strArgument : arguments)
            pointers.push_back(strArgument.data());
        pointers.push_back(nullptr);
        const auto spawn = [&] {
            errno = posix_spawn(&iProcess, pszPath, &m_actions, &m_attributes, pointers.data(), environ);
            return errno == 0 ? 0 : -1;
        };
        return GuardedCall({EFault::CreateProcess, pszPath}, spawn) == 0 ? 0 : errno;
    }

private:
    posix_spawnattr_t m_attributes;
    posix_spawn_file_actions_t m_actions;
    int m_iErrno = 0;
};

int SpawnProgram(pid_t& iProcess, const std::string& strPath, std::vector<std::string> arguments,
                 const char* pszWorkingDirectory)
{
    const CSpawnSettings settings(pszWorkingDirectory);
    const int iErrno = settings.Spawn(iProcess, strPath.c_str(), arguments);
    if (iErrno != ENOEXEC)
        return iErrno;
    arguments.front() = strPath;
    arguments.insert(arguments.begin(), "sh");
    return settings.Spawn(iProcess, "/bin/sh", arguments);
}

/// By the call's number: the C library's header for it does not work in C++.
CDescriptor OpenProcess(pid_t iProcess)
{
    return CDescriptor(GuardedCall({EFault::OpenProcess},
                                   [iProcess] { return static_cast<int>(syscall(SYS_pidfd_open, iProcess, 0)); }));
}

bool IsDirectory(const char* pszPath)
{
    struct stat status
    {};
    return stat(pszPath, &status) == 0 && S_ISDIR(status.st_mode);
}

SError StartError(int iErrno, const char* pszWorkingDirectory)
{
    SError error = CreationErrorFromErrno(iErrno);
    if (pszWorkingDirectory != nullptr && *pszWorkingDirectory != '\0' && !IsDirectory(pszWorkingDirectory))
        error.dwSysError = SYS_DIRECTORY;
    return error;
}

} // namespace

struct CChildProcess::SState
{
    pid_t iProcess = 0;
    CDescriptor process; ///< readable once it has ended; may be missing
    bool bTerminated = false;
    std::optional<uint32_t> exitCode;

    void Look();
    void Pause(uint64_t ui64Millis) const;
};

/// Collects the exit code when the child has ended.
void CChildProcess::SState::Look()
{
    if (exitCode)
        return;
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(iProcess), &info, WEXITED | WNOHANG) != 0) {
        exitCode = KILLED_BY_US; // somebody else has collected it: nothing to be known any more
        return;
    }
    if (info.si_pid == 0)
        return;
    const auto dwStatus = static_cast<uint32_t>(info.si_status);
    if (info.si_code == CLD_EXITED)
        exitCode = dwStatus;
    else
        exitCode = bTerminated && dwStatus == SIGKILL ? KILLED_BY_US : DIED_OF_SIGNAL + dwStatus;
}

void CChildProcess::SState::Pause(uint64_t ui64Millis) const
{
    if (process.IsValid()) {
        pollfd ended{process.Get(), POLLIN, 0};
        poll(&ended, 1, static_cast<int>(std::min(ui64Millis, LONGEST_LOOK)));
    } else {
        SleepMillis(static_cast<unsigned>(std::min<uint64_t>(ui64Millis, NAP)));
    }
}

std::unique_ptr<CChildProcess> CChildProcess::Start(std::string_view strProgram, std::string_view strCommandLine,
                                                    const char* pszWorkingDirectory)
{
    std::vector<std::string> arguments = SplitCommandLine(strCommandLine);
    if (arguments.empty())
        arguments.emplace_back(strProgram);
    const std::string strName(strProgram.empty() ? arguments.front() : strProgram);
    // The kernel's strings would end early and mean something else.
    const bool bEndsEarly = (strName + std::string(strCommandLine)).find('\0') != std::string::npos;
    if (strName.empty() || bEndsEarly) {
        SetLastError({LIB_INVALID, SYS_INVALID_PARAMETER});
        return nullptr;
    }
    const std::string strPath = FindProgram(strName);
    if (strPath.empty()) {
        SetLastError(CreationErrorFromErrno(errno));
        return nullptr;
    }
    auto pState = std::make_unique<SState>();
    int iErrno = 0;
    {
        const CStartsNoChild::CStart start; // ends once the child runs its program
        iErrno = SpawnProgram(pState->iProcess, strPath, std::move(arguments), pszWorkingDirectory);
    }
    if (iErrno != 0) {
        SetLastError(StartError(iErrno, pszWorkingDirectory));
        return nullptr;
    }
    LowerDescriptorLimit(pState->iProcess);
    pState->process = OpenProcess(pState->iProcess);
    return std::unique_ptr<CChildProcess>(new CChildProcess(std::move(pState)));
}

CChildProcess::CChildProcess(std::unique_ptr<SState> pState) : m_pState(std::move(pState)) {}

CChildProcess::~CChildProcess()
{
    m_pState->Look();
    if (!m_pState->exitCode)
        CReaper::Instance().Adopt(m_pState->iProcess);
}

unsigned CChildProcess::Id() const { return static_cast<unsigned>(m_pState->iProcess); }

bool CChildProcess::Wait(unsigned dwMillis)
{
    const uint64_t ui64Started = TickCount();
    for (;;) {
        m_pState->Look();
        if (m_pState->exitCode)
            return true;
        const uint64_t ui64Passed = TickCount() - ui64Started;
        if (dwMillis == INFINITE) {
            m_pState->Pause(LONGEST_LOOK);
        } else if (ui64Passed < dwMillis) {
            m_pState->Pause(dwMillis - ui64Passed);
        } else {
            SetLastError({LIB_TIMED_OUT, SYS_TIMEOUT});
            return false;
        }
    }
}

bool CChildProcess::Terminate()
{
    m_pState->Look();
    if (m_pState->exitCode)
        return true;
    // Not collected yet, so the number is still its own.
    if (kill(m_pState->iProcess, SIGKILL) != 0) {
        SetLastError(ErrorFromErrno(errno));
        return false;
    }
    m_pState->bTerminated = true;
    Wait(LONGEST_DYING);
    return true;
}

bool CChildProcess::ExitCode(uint32_t& dwExitCode)
{
    m_pState->Look();
    if (!m_pState->exitCode && !m_pState->bTerminated)
        return false;
    dwExitCode = m_pState->exitCode.value_or(KILLED_BY_US);
    return true;
}

} // namespace Platform
