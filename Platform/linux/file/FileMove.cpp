#include "Platform/CTemporaryFile.h"
#include "Platform/FileIdentity.h"
#include "Platform/FileSystem.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/file/Flush.h"

#include <array>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <linux/magic.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace Platform {

namespace {

constexpr size_t COPY_BYTES = 262144;

std::string DirectoryOf(const std::string& strPath)
{
    const size_t nSlash = strPath.rfind('/');
    if (nSlash == std::string::npos)
        return ".";
    return nSlash == 0 ? "/" : strPath.substr(0, nSlash);
}

/// Where a file's name and its count of names are one transaction of the journal, a flush of the file brings its newest
/// name along.
bool FlushesNamesWithFiles(int iDescriptor)
{
    constexpr decltype(statfs::f_type) XFS_MAGIC = 0x58465342;
    struct statfs fileSystem
    {};
    return fstatfs(iDescriptor, &fileSystem) == 0 &&
           (fileSystem.f_type == EXT4_SUPER_MAGIC || fileSystem.f_type == XFS_MAGIC ||
            fileSystem.f_type == BTRFS_SUPER_MAGIC || fileSystem.f_type == TMPFS_MAGIC);
}

bool CopyContent(CFileHandle& source, CFileHandle& target)
{
    const auto pBuffer = std::make_unique<char[]>(COPY_BYTES);
    for (;;) {
        const int64_t iRead = source.Read(pBuffer.get(), COPY_BYTES);
        if (iRead <= 0)
            return iRead == 0;
        if (target.Write(pBuffer.get(), static_cast<size_t>(iRead)) < 0)
            return false;
    }
}

/// The times are kept where the file system can.
void CopyTimes(const struct stat& status, const CFileHandle& target)
{
    const timespec times[] = {status.st_atim, status.st_mtim};
    futimens(target.NativeHandle(), times);
}

bool CopyFile(const char* pszFrom, const struct stat& status, const char* pszTo, CTemporaryFile& copy)
{
    CFileHandle source;
    CFileHandle target;
    if (!source.Open(pszFrom, {.share = EShare::DenyWrite, .bOnlyRegular = true}) || !copy.Create(pszTo, target) ||
        !CopyContent(source, target))
        return false;
    CopyTimes(status, target);
    return target.Close() && copy.TakeModeAndOwnerOf(pszFrom) && copy.Flush();
}

bool CopyLink(const char* pszFrom, const char* pszTo, CTemporaryFile& copy)
{
    std::array<char, PATH_MAX> buffer;
    const ssize_t iLength = readlink(pszFrom, buffer.data(), buffer.size() - 1);
    if (iLength < 0)
        return FailWithErrno();
    buffer[static_cast<size_t>(iLength)] = '\0';
    return copy.CreateLink(pszTo, buffer.data());
}

bool MoveAcross(const char* pszFrom, const char* pszTo)
{
    struct stat status
    {};
    if (!Succeeded(GuardedCall({EFault::Stat, pszFrom}, [&] { return lstat(pszFrom, &status); })))
        return false;
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) {
        errno = EXDEV;
        return FailWithErrno();
    }
    CTemporaryFile copy;
    const bool bCopied =
        S_ISLNK(status.st_mode) ? CopyLink(pszFrom, pszTo, copy) : CopyFile(pszFrom, status, pszTo, copy);
    return bCopied && copy.Replace() && FlushDirectory(DirectoryOf(pszTo)) && RemoveFile(pszFrom);
}

/// A file server that has to be asked again, as its answer got lost, says that the name is taken: by us.
bool IsLinked(const char* pszFrom, const char* pszTo)
{
    SFileIdentity from, to;
    const bool bLinked = IdentityOf(pszFrom, from) && IdentityOf(pszTo, to) && from.IsSameInode(to);
    errno = EEXIST;
    return bLinked || FailWithErrno();
}

/// For file systems that cannot rename without replacing: the link is refused where the name is taken.
bool LinkAndRemove(const char* pszFrom, const char* pszTo)
{
    if (!Succeeded(GuardedCall({EFault::Link, pszFrom, pszTo}, [&] { return link(pszFrom, pszTo); })) &&
        !(LastError().iLibError == LIB_EXISTS && IsLinked(pszFrom, pszTo)))
        return false;
    if (RemoveFile(pszFrom))
        return true;
    const SError error = LastError();
    RemoveFile(pszTo);
    SetLastError(error);
    return false;
}

} // namespace

bool RenameReplacing(const char* pszFrom, const char* pszTo)
{
    return Succeeded(GuardedCall({EFault::Rename, pszFrom, pszTo}, [&] { return rename(pszFrom, pszTo); }));
}

bool MoveFileReplacing(const char* pszFrom, const char* pszTo)
{
    if (RenameReplacing(pszFrom, pszTo))
        return true;
    return LastError().iLibError == LIB_CROSS_DEVICE && MoveAcross(pszFrom, pszTo);
}

bool FlushName(const char* pszPath)
{
    if (FlushDirectory(DirectoryOf(pszPath)))
        return true;
    if (LastError().iLibError != LIB_ACCESS)
        return false;
    const CDescriptor file(GuardedCall({EFault::Open, pszPath},
                                       [&] { return open(pszPath, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
    if (!file.IsValid())
        return FailWithErrno();
    if (FlushesNamesWithFiles(file.Get()))
        return FlushDescriptor(file.Get());
    return Succeeded(
        GuardedCall({.kind = EFault::FlushVolume, .iDescriptor = file.Get()}, [&] { return syncfs(file.Get()); }));
}

bool RenameNoReplace(const char* pszFrom, const char* pszTo)
{
    if (GuardedCall({EFault::Rename, pszFrom, pszTo},
                    [&] { return renameat2(AT_FDCWD, pszFrom, AT_FDCWD, pszTo, RENAME_NOREPLACE); }) == 0)
        return true;
    if (errno == EINVAL || errno == ENOSYS)
        return LinkAndRemove(pszFrom, pszTo);
    return FailWithErrno();
}

} // namespace Platform
