#pragma once

#include "Platform/CrashHandler.h"
#include "Platform/linux/crash/CrashRegisters.h"

#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <sys/types.h>
#include <type_traits>

/// What the crashed process tells the helper.
namespace Platform {

/// Of the environment: an absolute directory for the dumps, where the executable's cannot be written to.
constexpr const char* DUMP_DIRECTORY_VARIABLE = "TOBIX_DUMP_DIR";

/// Every signal that, left alone, ends the process because of an error in it.
constexpr int FATAL_SIGNALS[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGABRT, SIGSYS, SIGXCPU, SIGQUIT};

constexpr size_t LONGEST_EXECUTABLE = 260;
constexpr size_t LONGEST_NAME = 255;
constexpr const char* HELPER_ARGUMENT = "-report-crash"; ///< the only one, with the record on standard input

struct SCrashLog
{
    ECrashLog kind;
    uint16_t wPort;
    int iFacilityTimes8;
    char szHost[LONGEST_NAME + 1];
    char szIdent[LONGEST_NAME + 1];
};

struct SCrashRecord
{
    uint64_t ui64Magic;
    pid_t iProcess;
    pid_t iThread;
    int64_t iTime; ///< seconds since 1970-01-01 UTC
    bool bUncaughtException;
    siginfo_t info;
    SCrashRegisters registers;
    uint8_t code[CODE_BYTES]; ///< at the instruction that failed; zeros where that cannot be read
    char szExecutable[LONGEST_EXECUTABLE + 1];
    char szDump[LONGEST_EXECUTABLE + 1]; ///< the dump's path, without ".SECONDS.dmp"
    SCrashLog log;
};
constexpr uint64_t CRASH_MAGIC = 0x43524153480001;
static_assert(std::is_trivially_copyable_v<SCrashRecord>);
static_assert(sizeof(SCrashRecord) <= PIPE_BUF, "the smallest pipe must take it in one piece");

} // namespace Platform
