#pragma once

/// What a crash leaves behind: one line naming the exception, on standard error and in the main log, and a memory dump
/// that the debugger opens ("gdb EXE EXE.SECONDS.dmp"): beside the executable, or in the directory that the environment
/// variable TOBIX_DUMP_DIR names.
///
/// Every fatal signal and every uncaught exception of any thread is taken. The crashed process does next to nothing
/// itself: it starts its own executable once more as the helper that writes the report, so neither a smashed heap nor
/// an exhausted stack can stop it, and then dies of what hit it. Everything has a time limit.
namespace Platform {

/// The first call of main. True: this process was started to report a crash; it has done so, and main returns
/// iExitCode at once.
bool RunCrashHelperIfAsked(int argc, char** argv, int& iExitCode);

/// The second call of main, on the main thread, before any other thread runs. False: LastError; the crashes that could
/// not be arranged for then end the process without a report. A crashed process waits dwLimitMillis for its report,
/// then ends without. Threads of CNativeThread survive an overflow of their stack until it is reported.
/// No thread may block SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGSYS or SIGABRT.
bool InstallCrashHandler(unsigned dwLimitMillis = 30'000);

enum class ECrashLog { None, Console, Syslog };

/// Tells where the main log goes, so that a crash is reported there, too; None until it is called. Call it whenever the
/// main log is replaced, always on the same thread. Host, port, facility (multiplied by 8) and ident as of the log's
/// datagrams; names are cut at 255 characters.
void SetCrashLog(ECrashLog kind, const char* pszHost = "", unsigned short wPort = 0, int iFacilityTimes8 = 0,
                 const char* pszIdent = "");

} // namespace Platform
