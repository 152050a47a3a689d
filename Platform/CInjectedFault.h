#pragma once

#include <cstddef>

/// Lets tests make the calls of the platform layer fail where a disk or a kernel would. Process-wide: faults are set
/// before the threads under test run and outlive their calls. Costs one relaxed load a call when unused.
namespace Platform {

enum class EFault {
    Open,
    Close, ///< closes all the same, as the kernel does
    Read,
    Write,
    Truncate,
    Flush, ///< of a file or a directory
    FlushVolume,
    WriteOut,       ///< of a file: begun, not waited for
    FileSystemType, ///< that of a path is then unknown
    Lock,           ///< of a file that is opened
    Lease,          ///< by which an open file learns of its writers
    LockName,       ///< in the file of named locks, also the opening of that
    UnlockName,     ///< there; it cannot fail
    Stat,
    FreeSpace, ///< of a volume
    Rename,    ///< EINVAL: the file system cannot refuse to replace
    Link,
    Remove,
    CreateDirectory,
    ListDirectory,
    ReadDirectory, ///< one call an entry and one at the end
    WatchDirectory,
    CreateProcess,
    OpenProcess,
    CreateThread,
    ChangeUser,
    LocalSocket ///< any call on a socket between processes of this machine, or on its file
};

/// While it lives, the nth call from its construction (1 is the next) of that kind fails with the Linux errno, and
/// nTimes - 1 calls after it. Several of one kind count on their own.
class CInjectedFault
{
public:
    CInjectedFault(EFault fault, unsigned nFromNow, int iErrno, unsigned nTimes = 1);
    ~CInjectedFault();
    CInjectedFault(const CInjectedFault&) = delete;
    CInjectedFault& operator=(const CInjectedFault&) = delete;

    bool Strikes(EFault fault); ///< asked once a call; errno is then set

private:
    EFault m_fault;
    unsigned m_nSkip;
    unsigned m_nTimes;
    int m_iErrno;
};

} // namespace Platform
