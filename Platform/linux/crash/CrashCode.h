#pragma once

#include "Platform/linux/crash/CrashRecord.h"

#include <cstddef>
#include <cstdint>

/// The names of a crash. Nothing here allocates or locks: the signal handler falls back on it.
namespace Platform {

constexpr size_t CRASH_LINE_SIZE = 512;

struct SException
{
    uint32_t dwCode;
    unsigned dwFlags; ///< 1: nothing can be continued
    uint64_t ui64Address;
    uint64_t ui64Parameters[3];
};

SException ExceptionOf(const SCrashRecord& record, bool bStackExhausted);
void FormatCrashLine(char (&line)[CRASH_LINE_SIZE], const SException& exception, pid_t iThread);
void FormatDumpName(char (&name)[CRASH_LINE_SIZE], const SCrashRecord& record);
void FormatDumpCreated(char (&line)[CRASH_LINE_SIZE], const char* pszName);
void FormatDumpFailed(char (&line)[CRASH_LINE_SIZE], const char* pszName, uint32_t dwSysError);

} // namespace Platform
