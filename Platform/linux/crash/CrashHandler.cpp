// What the crashed process itself does. From the signal on: calls that are safe in a signal handler, and static memory.
#include "Platform/CrashHandler.h"

#include "Platform/CImmortal.h"
#include "Platform/Errors.h"
#include "Platform/FileSystem.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/crash/CAlternateStack.h"
#include "Platform/linux/crash/CrashCode.h"
#include "Platform/linux/crash/CrashLog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Platform {

namespace {

constexpr long NAP = 5;                 ///< milliseconds between looks at the helper
constexpr long LONGEST_DYING = 1000;    ///< milliseconds that a killed helper is waited for
constexpr unsigned LAST_LOG_LIMIT = 5;  ///< seconds for the log line of a process that got no helper
constexpr int HELPER_NOT_STARTED = 127; ///< exit code

SCrashRecord s_record;
SCrashLog s_logs[2]; // one is filled while the other one may be read
std::atomic<const SCrashLog*> s_pLog = &s_logs[0];
std::atomic<pid_t> s_iReporter = 0;    // the thread that crashed first
std::atomic<pid_t> s_iTerminating = 0; // the thread with an exception that nobody catches
long s_iLimit = 0;                     // milliseconds

void CopyName(char (&to)[LONGEST_NAME + 1], const char* pszFrom)
{
    const size_t nLength = std::min(std::strlen(pszFrom), LONGEST_NAME);
    std::memcpy(to, pszFrom, nLength);
    to[nLength] = '\0';
}

/// Reads through the kernel, which answers an error where a look of our own would crash again.
void ReadCode(SCrashRecord& record)
{
    iovec to{record.code, sizeof(record.code)};
    void* const pCode = reinterpret_cast<void*>(record.registers.ui64Instruction); // NOLINT(performance-no-int-to-ptr)
    iovec from{pCode, sizeof(record.code)};
    process_vm_readv(record.iProcess, &to, 1, &from, 1, 0);
}

void FillRecord(const siginfo_t& info, const ucontext_t& context)
{
    s_record.ui64Magic = CRASH_MAGIC;
    s_record.iProcess = getpid();
    s_record.iThread = gettid();
    s_record.iTime = time(nullptr);
    s_record.bUncaughtException = s_iTerminating == s_record.iThread;
    s_record.info = info;
    ReadRegisters(context, s_record.registers);
    ReadCode(s_record);
    s_record.log = *s_pLog.load();
}

/// Puts the record on standard input, where the helper finds it whole.
bool PutRecordOnInput()
{
    int iEnds[2];
    if (pipe2(iEnds, 0) != 0 || write(iEnds[1], &s_record, sizeof(s_record)) != sizeof(s_record) ||
        dup2(iEnds[0], STDIN_FILENO) < 0)
        return false;
    if (iEnds[0] != STDIN_FILENO)
        close(iEnds[0]);
    close(iEnds[1]);
    return true;
}

[[noreturn]] void BecomeHelper()
{
    close_range(STDERR_FILENO + 1, ~0U, 0); // makes room when the process had used up its descriptors
    for (int iDescriptor = 0; iDescriptor <= STDERR_FILENO; ++iDescriptor) {
        if (fcntl(iDescriptor, F_GETFD) < 0)
            open("/dev/null", O_RDWR); // what the helper opens must not take the place of standard error
    }
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (PutRecordOnInput()) {
        char argument[32];
        std::strncpy(argument, HELPER_ARGUMENT, sizeof(argument));
        char* const arguments[] = {s_record.szExecutable, argument, nullptr};
        char* const nothing[] = {nullptr};
        execve("/proc/self/exe", arguments, environ);
        execve("/proc/self/exe", arguments, nothing); // the environment may lie in ruins
        execve(s_record.szExecutable, arguments, nothing);
    }
    _exit(HELPER_NOT_STARTED);
}

void Nap()
{
    const timespec nap{0, NAP * 1'000'000};
    nanosleep(&nap, nullptr);
}

enum class EHelper { Done, NotStarted, Hanging };

/// Somebody else may have collected the helper: then it has ended, and is believed to have done its work.
EHelper WaitForHelper(pid_t iHelper, long iMillis)
{
    for (long iPassed = 0;; iPassed += NAP) {
        int iStatus = 0;
        const pid_t iEnded = waitpid(iHelper, &iStatus, WNOHANG | __WALL);
        if (iEnded == iHelper || (iEnded < 0 && errno != EINTR))
            return iEnded == iHelper && WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == HELPER_NOT_STARTED
                       ? EHelper::NotStarted
                       : EHelper::Done;
        if (iPassed >= iMillis)
            return EHelper::Hanging;
        Nap();
    }
}

void WriteError(const char* pszLine)
{
    const iovec parts[] = {{const_cast<char*>(pszLine), std::strlen(pszLine)}, {const_cast<char*>("\n"), 1}};
    [[maybe_unused]] const ssize_t nWritten = writev(STDERR_FILENO, parts, 2); // nobody could be told
}

/// The two lines, by the crashed process itself. The log comes last: its functions are none for a signal handler, so
/// they may never return.
void ReportWithoutHelper(uint32_t dwSysError)
{
    char line[CRASH_LINE_SIZE];
    char name[CRASH_LINE_SIZE];
    char failure[CRASH_LINE_SIZE];
    FormatCrashLine(line, ExceptionOf(s_record, false), s_record.iThread);
    WriteError(line);
    FormatDumpName(name, s_record);
    FormatDumpFailed(failure, name, dwSysError);
    WriteError(failure);
    unlink(name); // begun, perhaps

    sigset_t alarms;
    sigemptyset(&alarms);
    sigaddset(&alarms, SIGALRM);
    signal(SIGALRM, SIG_DFL);
    alarm(LAST_LOG_LIMIT);
    pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
    WriteCrashLog(s_record.log, s_record.iThread, line);
    WriteCrashLog(s_record.log, s_record.iThread, failure);
    alarm(0);
}

void Report()
{
    prctl(PR_SET_DUMPABLE, 1);       // a change of the user would hide this process from the helper
    prctl(PR_SET_PTRACER, getpid()); // and its children; an error where nobody restricts them
    const pid_t iHelper = _Fork();
    if (iHelper == 0)
        BecomeHelper();
    if (iHelper < 0) {
        ReportWithoutHelper(CreationErrorFromErrno(errno).dwSysError);
        return;
    }
    switch (WaitForHelper(iHelper, s_iLimit)) {
    case EHelper::Done:
        return;
    case EHelper::NotStarted:
        ReportWithoutHelper(SYS_GENERAL_FAILURE);
        return;
    case EHelper::Hanging:
        kill(iHelper, SIGKILL);
        WaitForHelper(iHelper, LONGEST_DYING);
        ReportWithoutHelper(SYS_TIMEOUT);
        return;
    }
}

/// The way the signal would have ended the process, so that whoever started it can tell.
[[noreturn]] void Die(int iSignal)
{
    signal(iSignal, SIG_DFL);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, iSignal);
    raise(iSignal);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    _exit(0x80 + iSignal); // where the signal cannot end this process: the first one of a container
}

void OnFatalSignal(int iSignal, siginfo_t* pInfo, void* pContext)
{
    pid_t iNobody = 0;
    if (s_iReporter.compare_exchange_strong(iNobody, gettid())) {
        FillRecord(*pInfo, *static_cast<const ucontext_t*>(pContext));
        Report();
        Die(iSignal);
    }
    // The first crash is being reported and ends the process. A limit in case its thread is the victim of this one.
    const long iLongest = s_iLimit + 2 * LONGEST_DYING + 1000L * LAST_LOG_LIMIT;
    for (long iPassed = 0; iPassed < iLongest; iPassed += NAP)
        Nap();
    Die(iSignal);
}

/// No exception at hand: the program itself gave up, which is an abort like any other.
[[noreturn]] void OnTerminate()
{
    if (std::current_exception())
        s_iTerminating = gettid();
    std::abort();
}

/// Beside the executable unless the environment names another place.
std::string DumpPath(const std::string& strExecutable)
{
    const char* const pszDirectory = std::getenv(DUMP_DIRECTORY_VARIABLE);
    if (pszDirectory == nullptr || pszDirectory[0] != '/' || strExecutable.empty())
        return strExecutable;
    return pszDirectory + strExecutable.substr(strExecutable.rfind('/'));
}

bool TakeSignals()
{
    struct sigaction action
    {};
    action.sa_sigaction = OnFatalSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigfillset(&action.sa_mask);
    bool bTaken = true;
    for (const int iSignal : FATAL_SIGNALS)
        bTaken = Succeeded(sigaction(iSignal, &action, nullptr)) && bTaken;
    return bTaken;
}

} // namespace

bool InstallCrashHandler(unsigned dwLimitMillis)
{
    s_iLimit = static_cast<long>(dwLimitMillis);
    const std::string strExecutable = ExecutablePath();
    s_record.szExecutable[strExecutable.copy(s_record.szExecutable, LONGEST_EXECUTABLE)] = '\0';
    const std::string strDump = DumpPath(strExecutable);
    s_record.szDump[strDump.copy(s_record.szDump, LONGEST_EXECUTABLE)] = '\0';
    // The main thread needs it until the very end of the process.
    static CImmortal<CAlternateStack> stack;
    const bool bStack = stack->IsValid() || FailWithErrno();
    std::set_terminate(OnTerminate);
    return TakeSignals() && bStack && !strExecutable.empty();
}

void SetCrashLog(ECrashLog kind, const char* pszHost, unsigned short wPort, int iFacilityTimes8, const char* pszIdent)
{
    SCrashLog& log = s_pLog == &s_logs[0] ? s_logs[1] : s_logs[0];
    log.kind = kind;
    log.wPort = wPort;
    log.iFacilityTimes8 = iFacilityTimes8;
    CopyName(log.szHost, pszHost);
    CopyName(log.szIdent, pszIdent);
    s_pLog = &log;
}

} // namespace Platform
