#include "Platform/FileSystem.h"

#include "Platform/CFileHandle.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <linux/magic.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace Platform {

namespace {

constexpr int64_t NANOSECONDS = 1'000'000'000;

/// File systems whose files live on another machine, or may: what programs serve (FUSE) cannot be told apart.
constexpr uint32_t NETWORK_FILE_SYSTEMS[] = {
    NFS_SUPER_MAGIC,  SMB_SUPER_MAGIC,  CIFS_SUPER_MAGIC, SMB2_SUPER_MAGIC, AFS_SUPER_MAGIC,   AFS_FS_MAGIC,
    CEPH_SUPER_MAGIC, CODA_SUPER_MAGIC, FUSE_SUPER_MAGIC, V9FS_MAGIC,       OCFS2_SUPER_MAGIC,
};

int64_t Nanoseconds(const statx_timestamp& time) { return time.tv_sec * NANOSECONDS + time.tv_nsec; }

int Percent(uint64_t nFree, uint64_t nAll)
{
    return nAll == 0 ? 100 : static_cast<int>(static_cast<long double>(nFree) * 100 / static_cast<long double>(nAll));
}

bool IsDriveLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

} // namespace

bool RemoveFile(const char* pszPath)
{
    return Succeeded(GuardedCall({EFault::Remove, pszPath}, [&] { return unlink(pszPath); }));
}

bool RemoveUnlessInUse(const char* pszPath)
{
    // Only an opener for reading is told of writers that do not lock.
    CFileHandle file;
    return file.Open(pszPath, {.share = EShare::Exclusive, .bOnlyRegular = true}) && !file.IsUnfinished() &&
           RemoveFile(pszPath);
}

bool OwnerOf(const char* pszPath, unsigned& nUser)
{
    struct stat status
    {};
    if (!Succeeded(GuardedCall({EFault::Stat, pszPath}, [&] { return stat(pszPath, &status); })))
        return false;
    nUser = status.st_uid;
    return true;
}

bool GetFileTimes(const char* pszPath, SFileTimes& times)
{
    struct statx status
    {};
    if (!Succeeded(GuardedCall({EFault::Stat}, [&] {
            return statx(AT_FDCWD, pszPath, 0, STATX_MTIME | STATX_ATIME | STATX_BTIME, &status);
        })))
        return false;
    times.iModified = Nanoseconds(status.stx_mtime);
    times.iAccessed = Nanoseconds(status.stx_atime);
    times.iCreated = (status.stx_mask & STATX_BTIME) != 0 ? Nanoseconds(status.stx_btime) : times.iModified;
    return true;
}

EPathKind KindOf(const char* pszPath, bool bFollow)
{
    struct stat status
    {};
    const int iFlags = bFollow ? 0 : AT_SYMLINK_NOFOLLOW;
    if (GuardedCall({EFault::Stat}, [&] { return fstatat(AT_FDCWD, pszPath, &status, iFlags); }) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return EPathKind::Missing;
        FailWithErrno();
        return EPathKind::Failed;
    }
    if (S_ISDIR(status.st_mode))
        return EPathKind::Directory;
    return S_ISREG(status.st_mode) ? EPathKind::File : EPathKind::Other;
}

bool CreateOneDirectory(const char* pszPath)
{
    return Succeeded(GuardedCall({EFault::CreateDirectory, pszPath}, [&] { return mkdir(pszPath, S_IRWXU); }));
}

bool RemoveDirectory(const char* pszPath)
{
    return Succeeded(GuardedCall({EFault::Remove, pszPath}, [&] { return rmdir(pszPath); }));
}

bool MayFill(const char* pszDirectory)
{
    return Succeeded(GuardedCall({EFault::Stat, pszDirectory},
                                 [&] { return faccessat(AT_FDCWD, pszDirectory, W_OK | X_OK, AT_EACCESS); }));
}

bool SetWorkingDirectory(const char* pszPath) { return Succeeded(chdir(pszPath)); }

std::string WorkingDirectory()
{
    const std::unique_ptr<char, decltype(&std::free)> pszPath(getcwd(nullptr, 0), std::free);
    if (pszPath != nullptr)
        return pszPath.get();
    FailWithErrno();
    return {};
}

std::string ExecutablePath()
{
    std::array<char, PATH_MAX> buffer;
    const ssize_t iLength = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (iLength < 0) {
        FailWithErrno();
        return {};
    }
    std::string strPath(buffer.data(), static_cast<size_t>(iLength));
    constexpr std::string_view REPLACED = " (deleted)"; // by an upgrade under the running program
    if (strPath.ends_with(REPLACED))
        strPath.resize(strPath.size() - REPLACED.size());
    return strPath;
}

bool IsNetworkPath(const char* pszPath)
{
    struct statfs status
    {};
    if (!Succeeded(statfs(pszPath, &status)))
        return false;
    const auto dwKind = static_cast<uint32_t>(status.f_type);
    return std::find(std::begin(NETWORK_FILE_SYSTEMS), std::end(NETWORK_FILE_SYSTEMS), dwKind) !=
           std::end(NETWORK_FILE_SYSTEMS);
}

std::string NativePath(std::string_view strPath)
{
    const bool bDrive = strPath.size() >= 2 && IsDriveLetter(strPath[0]) && strPath[1] == ':';
    if (!bDrive && !strPath.starts_with('\\'))
        return std::string(strPath);
    std::string strNative(strPath.substr(bDrive ? 2 : 0));
    std::replace(strNative.begin(), strNative.end(), '\\', '/');
    return strNative;
}

std::string AbsolutePath(std::string_view strPath)
{
    const std::string strNative = NativePath(strPath);
    return strNative.empty() || strNative.front() == '/' ? strNative : WorkingDirectory() + '/' + strNative;
}

int64_t FileSize(const char* pszPath)
{
    struct stat status
    {};
    return Succeeded(GuardedCall({EFault::Stat}, [&] { return lstat(pszPath, &status); })) ? status.st_size : -1;
}

/// What is kept for the superuser counts for nobody.
bool FreePercent(const char* pszPath, int& iPercent)
{
    struct statvfs status
    {};
    if (!Succeeded(GuardedCall({EFault::FreeSpace, pszPath}, [&] { return statvfs(pszPath, &status); })))
        return false;
    const uint64_t nUsed = status.f_blocks - std::min(status.f_blocks, status.f_bfree);
    iPercent = std::min(Percent(status.f_bavail, nUsed + status.f_bavail), Percent(status.f_ffree, status.f_files));
    return true;
}

} // namespace Platform
