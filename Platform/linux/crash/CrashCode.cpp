#include "Platform/linux/crash/CrashCode.h"

#include <cinttypes>
#include <cstdio>

namespace Platform {

namespace {

enum ECode : uint32_t {
    DATATYPE_MISALIGNMENT = 0x80000002,
    BREAKPOINT = 0x80000003,
    SINGLE_STEP = 0x80000004,
    ACCESS_VIOLATION = 0xC0000005,
    IN_PAGE_ERROR = 0xC0000006,
    ILLEGAL_INSTRUCTION = 0xC000001D,
    ARRAY_BOUNDS_EXCEEDED = 0xC000008C,
    FLT_DENORMAL_OPERAND = 0xC000008D,
    FLT_DIVIDE_BY_ZERO = 0xC000008E,
    FLT_INEXACT_RESULT = 0xC000008F,
    FLT_INVALID_OPERATION = 0xC0000090,
    FLT_OVERFLOW = 0xC0000091,
    FLT_STACK_CHECK = 0xC0000092,
    FLT_UNDERFLOW = 0xC0000093,
    INT_DIVIDE_BY_ZERO = 0xC0000094,
    INT_OVERFLOW = 0xC0000095,
    PRIV_INSTRUCTION = 0xC0000096,
    STACK_OVERFLOW = 0xC00000FD,
    STACK_BUFFER_OVERRUN = 0xC0000409,
    CPP_EXCEPTION = 0xE06D7363,
    OTHER_SIGNAL = 0xE0000000, // plus its number
};

struct SName
{
    uint32_t dwCode;
    const char* pszName;
};

constexpr SName NAMES[] = {
    {DATATYPE_MISALIGNMENT, "EXCEPTION_DATATYPE_MISALIGNMENT"},
    {BREAKPOINT, "EXCEPTION_BREAKPOINT"},
    {SINGLE_STEP, "EXCEPTION_SINGLE_STEP"},
    {ACCESS_VIOLATION, "EXCEPTION_ACCESS_VIOLATION"},
    {IN_PAGE_ERROR, "EXCEPTION_IN_PAGE_ERROR"},
    {ILLEGAL_INSTRUCTION, "EXCEPTION_ILLEGAL_INSTRUCTION"},
    {0xC0000025, "EXCEPTION_NONCONTINUABLE_EXCEPTION"}, // does not occur on this system
    {0xC0000026, "EXCEPTION_INVALID_DISPOSITION"},      // nor does this
    {ARRAY_BOUNDS_EXCEEDED, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED"},
    {FLT_DENORMAL_OPERAND, "EXCEPTION_FLT_DENORMAL_OPERAND"},
    {FLT_DIVIDE_BY_ZERO, "EXCEPTION_FLT_DIVIDE_BY_ZERO"},
    {FLT_INEXACT_RESULT, "EXCEPTION_FLT_INEXACT_RESULT"},
    {FLT_INVALID_OPERATION, "EXCEPTION_FLT_INVALID_OPERATION"},
    {FLT_OVERFLOW, "EXCEPTION_FLT_OVERFLOW"},
    {FLT_STACK_CHECK, "EXCEPTION_FLT_STACK_CHECK"},
    {FLT_UNDERFLOW, "EXCEPTION_FLT_UNDERFLOW"},
    {INT_DIVIDE_BY_ZERO, "EXCEPTION_INT_DIVIDE_BY_ZERO"},
    {INT_OVERFLOW, "EXCEPTION_INT_OVERFLOW"},
    {PRIV_INSTRUCTION, "EXCEPTION_PRIV_INSTRUCTION"},
    {STACK_OVERFLOW, "EXCEPTION_STACK_OVERFLOW"},
    {STACK_BUFFER_OVERRUN, "STATUS_STACK_BUFFER_OVERRUN"},
    {0xC0000417, "STATUS_INVALID_CRUNTIME_PARAMETER"}, // nor this
    {CPP_EXCEPTION, "UNHANDLED_CPP_EXCEPTION"},
};

uint32_t FloatingPointCode(const SCrashRecord& record)
{
    if (record.registers.floatingTrap == EFloatingTrap::StackCheck)
        return FLT_STACK_CHECK;
    switch (record.info.si_code) {
    case FPE_INTDIV:
        return INT_DIVIDE_BY_ZERO;
    case FPE_INTOVF:
        return INT_OVERFLOW;
    case FPE_FLTDIV:
        return FLT_DIVIDE_BY_ZERO;
    case FPE_FLTOVF:
        return FLT_OVERFLOW;
    case FPE_FLTUND:
        return record.registers.floatingTrap == EFloatingTrap::Denormal ? FLT_DENORMAL_OPERAND : FLT_UNDERFLOW;
    case FPE_FLTRES:
        return FLT_INEXACT_RESULT;
    case FPE_FLTINV:
        return FLT_INVALID_OPERATION;
    case FPE_FLTSUB:
        return ARRAY_BOUNDS_EXCEEDED;
    default:
        return OTHER_SIGNAL + SIGFPE;
    }
}

uint32_t AccessCode(const SCrashRecord& record, bool bStackExhausted)
{
    if (bStackExhausted)
        return STACK_OVERFLOW;
    if (record.info.si_code == SEGV_BNDERR)
        return ARRAY_BOUNDS_EXCEEDED;
    return record.registers.bNoAddress && IsPrivileged(record.code) ? PRIV_INSTRUCTION : ACCESS_VIOLATION;
}

uint32_t CodeOf(const SCrashRecord& record, bool bStackExhausted)
{
    const int iCode = record.info.si_code;
    switch (record.info.si_signo) {
    case SIGSEGV:
        return AccessCode(record, bStackExhausted);
    case SIGBUS:
        return iCode == BUS_ADRALN ? DATATYPE_MISALIGNMENT : IN_PAGE_ERROR;
    case SIGILL:
        return iCode == ILL_PRVOPC || iCode == ILL_PRVREG ? PRIV_INSTRUCTION : ILLEGAL_INSTRUCTION;
    case SIGFPE:
        return FloatingPointCode(record);
    case SIGTRAP:
        return iCode == TRAP_TRACE || iCode == TRAP_HWBKPT ? SINGLE_STEP : BREAKPOINT;
    case SIGABRT:
        return record.bUncaughtException ? CPP_EXCEPTION : STACK_BUFFER_OVERRUN;
    default:
        return OTHER_SIGNAL + static_cast<uint32_t>(record.info.si_signo);
    }
}

/// Why a page could not be brought in.
uint64_t PageErrorStatus(int iCode)
{
    constexpr uint64_t END_OF_FILE = 0xC0000011;
    constexpr uint64_t DEVICE_DATA_ERROR = 0xC000009C;
    return iCode == BUS_ADRERR ? END_OF_FILE : DEVICE_DATA_ERROR;
}

const char* NameOf(uint32_t dwCode)
{
    for (const SName& name : NAMES) {
        if (name.dwCode == dwCode)
            return name.pszName;
    }
    return nullptr;
}

} // namespace

SException ExceptionOf(const SCrashRecord& record, bool bStackExhausted)
{
    SException exception{};
    exception.dwCode = CodeOf(record, bStackExhausted);
    exception.dwFlags = record.info.si_signo == SIGABRT ? 1 : 0;
    exception.ui64Address = record.registers.ui64Instruction;
    if (record.info.si_code <= 0) // sent by a program: nothing was accessed
        return exception;
    const auto ui64Accessed = reinterpret_cast<uint64_t>(record.info.si_addr);
    exception.ui64Parameters[0] = record.registers.ui64Access;
    exception.ui64Parameters[1] = record.registers.bNoAddress ? ~uint64_t{0} : ui64Accessed;
    exception.ui64Parameters[2] = PageErrorStatus(record.info.si_code);
    return exception;
}

void FormatCrashLine(char (&line)[CRASH_LINE_SIZE], const SException& exception, pid_t iThread)
{
    char name[64];
    if (const char* const pszName = NameOf(exception.dwCode))
        std::snprintf(name, sizeof(name), "%s:", pszName);
    else
        std::snprintf(name, sizeof(name), "UNKNOWN EXCEPTION: Code=0x%08X", exception.dwCode);
    char access[128] = "";
    const auto& parameters = exception.ui64Parameters;
    if (exception.dwCode == ACCESS_VIOLATION)
        std::snprintf(access, sizeof(access), " Write=%" PRIu64 " AccessAddr=%016" PRIX64, parameters[0],
                      parameters[1]);
    else if (exception.dwCode == IN_PAGE_ERROR)
        std::snprintf(access, sizeof(access), " Write=%" PRIu64 " AccessAddr=%016" PRIX64 " NTSTATUS=%" PRIu64,
                      parameters[0], parameters[1], parameters[2]);
    std::snprintf(line, CRASH_LINE_SIZE, "%s Thread=0x%04X Flags=%u Addr=%016" PRIX64 "%s", name,
                  static_cast<unsigned>(iThread), exception.dwFlags, exception.ui64Address, access);
}

void FormatDumpName(char (&name)[CRASH_LINE_SIZE], const SCrashRecord& record)
{
    std::snprintf(name, CRASH_LINE_SIZE, "%s.%lld.dmp", record.szDump, static_cast<long long>(record.iTime));
}

void FormatDumpCreated(char (&line)[CRASH_LINE_SIZE], const char* pszName)
{
    std::snprintf(line, CRASH_LINE_SIZE,
                  "Created Minidump \"%s\", please send the minidump and this logfile to the support when reporting "
                  "this problem.",
                  pszName);
}

void FormatDumpFailed(char (&line)[CRASH_LINE_SIZE], const char* pszName, uint32_t dwSysError)
{
    std::snprintf(line, CRASH_LINE_SIZE,
                  "Creating Minidump \"%s\" failed (0x%08X), please send this logfile to the support when reporting "
                  "this problem.",
                  pszName, dwSysError);
}

} // namespace Platform
