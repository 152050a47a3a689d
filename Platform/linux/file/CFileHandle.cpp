#include "Platform/CFileHandle.h"

#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/file/IdentityFrom.h"
#include "Platform/linux/file/ShareClaim.h"

#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Platform {

namespace {

constexpr int64_t STILL_MILLIS = 1000;
constexpr int MOST_ATTEMPTS = 16; ///< at a file that others keep removing

int AccessFlags(EAccess access)
{
    switch (access) {
    case EAccess::Read:
        return O_RDONLY;
    case EAccess::Write:
        return O_WRONLY;
    case EAccess::ReadWrite:
        break;
    }
    return O_RDWR;
}

/// O_TRUNC is missing on purpose: nothing is cut off before the lock is ours.
int OpenFlags(const SOpenMode& mode)
{
    int iFlags = AccessFlags(mode.access) | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    if (mode.bCreate || mode.bCreateNew)
        iFlags |= O_CREAT;
    if (mode.bCreateNew)
        iFlags |= O_EXCL;
    if (mode.access != EAccess::Read || mode.bCreate || mode.bCreateNew || mode.bTruncate || mode.bOnlyRegular)
        iFlags |= O_NOFOLLOW;
    return iFlags;
}

bool DeniesWriters(const SOpenMode& mode) { return mode.share == EShare::Exclusive || mode.share == EShare::DenyWrite; }

enum class EWriters { None, Some, Unknown };

/// The kernel grants a read lease only while nobody has the file open for writing. It cannot grant one at all where the
/// file is another user's or the file system has none.
EWriters WritersOf(int iDescriptor)
{
    // An opener that comes while we have the lease makes the kernel signal us: by one that is ignored by default.
    if (fcntl(iDescriptor, F_SETSIG, SIGURG) != 0)
        return EWriters::Unknown;
    if (GuardedCall({EFault::Lease}, [&] { return fcntl(iDescriptor, F_SETLEASE, F_RDLCK); }) != 0)
        return errno == EAGAIN ? EWriters::Some : EWriters::Unknown;
    fcntl(iDescriptor, F_SETLEASE, F_UNLCK);
    return EWriters::None;
}

/// A change that lies in the future was made before the clock was set back. A writer may give the file whatever time
/// of modification; the time of the change is the kernel's.
bool StandsStill(int iDescriptor)
{
    struct stat status
    {};
    timespec now{};
    if (fstat(iDescriptor, &status) != 0 || clock_gettime(CLOCK_REALTIME, &now) != 0)
        return false;
    const auto Millis = [](const timespec& time) { return time.tv_sec * int64_t{1000} + time.tv_nsec / 1'000'000; };
    return std::abs(Millis(now) - Millis(status.st_ctim)) > STILL_MILLIS;
}

bool MayBeWritten(int iDescriptor, const SOpenMode& mode)
{
    const EWriters writers = WritersOf(iDescriptor);
    return writers == EWriters::Some ||
           (writers == EWriters::Unknown && mode.bOnlyComplete && !StandsStill(iDescriptor));
}

/// Sets errno when the file is not one that the mode asks for.
bool IsFitting(const struct stat& status, const SOpenMode& mode)
{
    if (S_ISREG(status.st_mode))
        return true;
    errno = S_ISDIR(status.st_mode) ? EISDIR : EOPNOTSUPP;
    return !S_ISDIR(status.st_mode) && !mode.bOnlyRegular && !mode.bNoDevices;
}

/// False also when the name cannot be looked at any more.
bool IsNamed(const char* pszPath, const struct stat& status, const SOpenMode& mode)
{
    struct stat named
    {};
    const int iFlags = (OpenFlags(mode) & O_NOFOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0;
    return fstatat(AT_FDCWD, pszPath, &named, iFlags) == 0 && named.st_dev == status.st_dev &&
           named.st_ino == status.st_ino;
}

enum class EAttempt { Opened, Removed, Failed };

/// Asks for the name alone; what it stands for is not touched.
bool HasName(const char* pszPath, const SOpenMode& mode)
{
    return CDescriptor(open(pszPath, (OpenFlags(mode) & O_NOFOLLOW) | O_PATH | O_CLOEXEC)).IsValid();
}

/// The client of a cluster file system remembers names for a while: what another host has replaced it opens, and learns
/// later that it has gone; or it asks for that by its old number and says that there is no such file, although the name
/// was never without one. Leaves errno alone.
EAttempt Failure(const char* pszPath, const SOpenMode& mode)
{
    const int iErrno = errno;
    const bool bReplaced = iErrno == ESTALE || (iErrno == ENOENT && HasName(pszPath, mode));
    errno = iErrno;
    return bReplaced ? EAttempt::Removed : EAttempt::Failed;
}

/// Removed: the name was taken away, or given to another file, between opening and locking, so that the lock would
/// exclude nobody and a writer might cut off what has become somebody's finished file. Failed: errno.
EAttempt TryOpen(const char* pszPath, const SOpenMode& mode, CDescriptor& file)
{
    file = CDescriptor(
        GuardedCall({EFault::Open, pszPath}, [&] { return open(pszPath, OpenFlags(mode), mode.dwPermission); }));
    struct stat status
    {};
    if (!file.IsValid() || fstat(file.Get(), &status) != 0 || !IsFitting(status, mode))
        return Failure(pszPath, mode);
    if (!S_ISREG(status.st_mode))
        return EAttempt::Opened;
    if (!ClaimShare(file.Get(), mode))
        return Failure(pszPath, mode);
    if (mode.access == EAccess::Read && !mode.bCreateNew && DeniesWriters(mode) && MayBeWritten(file.Get(), mode)) {
        errno = EAGAIN;
        return EAttempt::Failed;
    }
    return IsNamed(pszPath, status, mode) ? EAttempt::Opened : EAttempt::Removed;
}

/// What was made but could not be kept. Leaves errno alone.
void RemoveUnused(const char* pszPath)
{
    const int iErrno = errno;
    unlink(pszPath);
    errno = iErrno;
}

bool CutOff(int iDescriptor)
{
    return GuardedCall({.kind = EFault::Truncate, .iDescriptor = iDescriptor},
                       [&] { return ftruncate(iDescriptor, 0); }) == 0;
}

} // namespace

CFileHandle::~CFileHandle()
{
    if (IsOpen())
        close(m_iDescriptor);
}

CFileHandle::CFileHandle(CFileHandle&& other) noexcept : m_iDescriptor(std::exchange(other.m_iDescriptor, -1)) {}

CFileHandle& CFileHandle::operator=(CFileHandle&& other) noexcept
{
    if (this != &other) {
        if (IsOpen())
            close(m_iDescriptor);
        m_iDescriptor = std::exchange(other.m_iDescriptor, -1);
    }
    return *this;
}

bool CFileHandle::Open(const char* pszPath, const SOpenMode& mode)
{
    CDescriptor file;
    EAttempt attempt = EAttempt::Removed;
    for (int iLeft = MOST_ATTEMPTS; attempt == EAttempt::Removed && iLeft > 0; --iLeft)
        attempt = TryOpen(pszPath, mode, file);
    if (attempt == EAttempt::Removed)
        errno = EAGAIN;
    else if (attempt == EAttempt::Failed && mode.bCreateNew && file.IsValid() && errno != EWOULDBLOCK)
        RemoveUnused(pszPath); // unless somebody has locked it to remove it: the name may be another file's by now
    if (attempt != EAttempt::Opened || (mode.bTruncate && !CutOff(file.Get())))
        return FailWithErrno();
    *this = CFileHandle();
    m_iDescriptor = file.Release();
    return true;
}

bool CFileHandle::OpenWriter(const CFileHandle& reader, const char* pszPath)
{
    return Reopen(reader, O_WRONLY, pszPath);
}

bool CFileHandle::OpenReader(const CFileHandle& writer, const char* pszPath)
{
    return Reopen(writer, O_RDONLY, pszPath);
}

bool CFileHandle::Reopen(const CFileHandle& other, int iFlags, const char* pszPath)
{
    const std::string strLink = "/proc/self/fd/" + std::to_string(other.m_iDescriptor);
    CDescriptor file(GuardedCall({EFault::Open, pszPath}, [&] { return open(strLink.c_str(), iFlags | O_CLOEXEC); }));
    if (!file.IsValid())
        return FailWithErrno();
    *this = CFileHandle();
    m_iDescriptor = file.Release();
    return true;
}

bool CFileHandle::OpenUnnamed(const char* pszDirectory, unsigned dwPermission)
{
    CDescriptor file(GuardedCall({EFault::Open, pszDirectory},
                                 [&] { return open(pszDirectory, O_TMPFILE | O_WRONLY | O_CLOEXEC, dwPermission); }));
    if (!file.IsValid()) {
        if (errno == EISDIR) // of a kernel or a file system that knows the flag as part of another one only
            errno = EOPNOTSUPP;
        return FailWithErrno();
    }
    *this = CFileHandle();
    m_iDescriptor = file.Release();
    return true;
}

/// What has the name since it was taken away stays: it is not this file.
bool CFileHandle::Remove()
{
    char path[PATH_MAX];
    const std::string strLink = "/proc/self/fd/" + std::to_string(m_iDescriptor);
    const ssize_t iLength = readlink(strLink.c_str(), path, sizeof(path) - 1);
    struct stat status
    {};
    if (iLength < 0 || fstat(m_iDescriptor, &status) != 0)
        return FailWithErrno();
    path[iLength] = '\0';
    errno = ENOENT;
    return Succeeded(IsNamed(path, status, {.bOnlyRegular = true}) ? unlink(path) : -1);
}

bool CFileHandle::Close()
{
    // Gone even when this fails: Linux closes it before it tells of errors or of a signal.
    return Succeeded(GuardedClose(std::exchange(m_iDescriptor, -1)));
}

bool CFileHandle::ShareLock()
{
    return ReplaceClaim(m_iDescriptor, {.share = EShare::Exclusive}, {.share = EShare::DenyWrite}) || FailWithErrno();
}

bool CFileHandle::LetOthersTake()
{
    return ClaimUnfinished(m_iDescriptor, {.share = EShare::DenyWrite}) || FailWithErrno();
}

bool CFileHandle::IsUnfinished() const { return Platform::IsUnfinished(m_iDescriptor) && !FailWithErrno(); }

int64_t CFileHandle::Read(void* pBuffer, size_t nCount)
{
    size_t nDone = 0;
    while (nDone < nCount) {
        const ssize_t iRead = GuardedCall(
            {EFault::Read}, [&] { return read(m_iDescriptor, static_cast<char*>(pBuffer) + nDone, nCount - nDone); });
        if (iRead < 0 && errno == EINTR)
            continue;
        if (iRead < 0) {
            FailWithErrno();
            return -1;
        }
        if (iRead == 0)
            break;
        nDone += static_cast<size_t>(iRead);
    }
    return static_cast<int64_t>(nDone);
}

int64_t CFileHandle::Write(const void* pBuffer, size_t nCount)
{
    size_t nDone = 0;
    while (nDone < nCount) {
        const char* const pNext = static_cast<const char*>(pBuffer) + nDone;
        const ssize_t iWritten = GuardedCall({.kind = EFault::Write, .iDescriptor = m_iDescriptor, .pData = pNext},
                                             [&] { return write(m_iDescriptor, pNext, nCount - nDone); });
        if (iWritten < 0 && errno == EINTR)
            continue;
        if (iWritten < 0) {
            FailWithErrno();
            return -1;
        }
        nDone += static_cast<size_t>(iWritten);
    }
    return static_cast<int64_t>(nDone);
}

int64_t CFileHandle::Seek(int64_t iOffset, ESeekFrom from)
{
    const int iWhence = from == ESeekFrom::Begin ? SEEK_SET : from == ESeekFrom::Current ? SEEK_CUR : SEEK_END;
    const off_t iPosition = lseek(m_iDescriptor, iOffset, iWhence);
    if (iPosition < 0)
        FailWithErrno();
    return iPosition;
}

int64_t CFileHandle::Size()
{
    struct stat status
    {};
    return Succeeded(GuardedCall({EFault::Stat}, [&] { return fstat(m_iDescriptor, &status); })) ? status.st_size : -1;
}

bool CFileHandle::Identity(SFileIdentity& identity) const
{
    struct stat status
    {};
    if (!Succeeded(GuardedCall({EFault::Stat}, [&] { return fstat(m_iDescriptor, &status); })))
        return false;
    identity = IdentityFrom(status);
    return true;
}

} // namespace Platform
