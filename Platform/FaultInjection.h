#pragma once

/// Lets tests make the platform layer fail where a disk or a kernel would. Costs one relaxed load when unused.
/// Process-wide; set before the threads under test run.
namespace Platform {

enum class EFault { Open, Read, Write, Flush, Rename, Remove, ListDirectory, CreateProcess, CreateThread, Count };

/// The nth call from now on (1 is the next) of that operation fails with the Linux errno, and nTimes - 1 after it.
void InjectFault(EFault fault, unsigned nFromNow, int iErrno, unsigned nTimes = 1);
void ClearFaults();
/// Asked by the platform functions: true when this call shall fail; errno is then set.
bool ShallFail(EFault fault);

} // namespace Platform
