#include "Platform/CFileHandle.h"
#include "Platform/FileSystem.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"

#include <array>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform {

namespace {

constexpr size_t COPY_BYTES = 262144;
constexpr size_t LONGEST_KEPT_NAME = 240; ///< leaves room for what makes a temporary name of it
constexpr mode_t PERMISSIONS = S_IRWXU | S_IRWXG | S_IRWXO;

bool Flush(int iDescriptor)
{
    int iResult = -1;
    do
        iResult = GuardedCall({.kind = EFault::Flush, .iDescriptor = iDescriptor}, [&] { return fsync(iDescriptor); });
    while (iResult != 0 && errno == EINTR);
    return Succeeded(iResult);
}

bool Rename(const char* pszFrom, const char* pszTo)
{
    return Succeeded(GuardedCall({EFault::Rename, pszFrom, pszTo}, [&] { return rename(pszFrom, pszTo); }));
}

std::string DirectoryOf(const std::string& strPath)
{
    const size_t nSlash = strPath.rfind('/');
    if (nSlash == std::string::npos)
        return ".";
    return nSlash == 0 ? "/" : strPath.substr(0, nSlash);
}

std::string TemporaryNameFor(const std::string& strPath)
{
    const size_t nSlash = strPath.rfind('/');
    const size_t nName = nSlash == std::string::npos ? 0 : nSlash + 1;
    return strPath.substr(0, nName) + "." + strPath.substr(nName, LONGEST_KEPT_NAME) + ".tmp";
}

bool FlushDirectory(const std::string& strDirectory)
{
    const CDescriptor directory(GuardedCall({EFault::Open, strDirectory.c_str()}, [&] {
        return open(strDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }));
    return directory.IsValid() ? Flush(directory.Get()) : FailWithErrno();
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

/// The owner is kept where we may give files away, the times where the file system can.
bool CopyAttributes(const CFileHandle& source, const CFileHandle& target)
{
    struct stat status
    {};
    if (!Succeeded(fstat(source.NativeHandle(), &status)))
        return false;
    [[maybe_unused]] const int iIgnored = fchown(target.NativeHandle(), status.st_uid, status.st_gid);
    const timespec times[] = {status.st_atim, status.st_mtim};
    futimens(target.NativeHandle(), times);
    return Succeeded(fchmod(target.NativeHandle(), status.st_mode & PERMISSIONS));
}

/// The target stays open: its lock keeps another thread that moves to the same name off the copy until that is renamed.
bool CopyFile(const char* pszFrom, const std::string& strTo, CFileHandle& target)
{
    CFileHandle source;
    if (!source.Open(pszFrom, {.share = EShare::DenyWrite, .bOnlyRegular = true}) ||
        !target.Open(strTo.c_str(), {.access = EAccess::Write,
                                     .share = EShare::Exclusive,
                                     .bCreate = true,
                                     .bTruncate = true,
                                     .bOnlyRegular = true}))
        return false;
    if (CopyContent(source, target) && CopyAttributes(source, target) && Flush(target.NativeHandle()))
        return true;
    const SError error = LastError();
    RemoveFile(strTo.c_str());
    SetLastError(error);
    return false;
}

bool CopyLink(const char* pszFrom, const std::string& strTo)
{
    std::array<char, PATH_MAX> buffer;
    const ssize_t iLength = readlink(pszFrom, buffer.data(), buffer.size() - 1);
    if (iLength < 0)
        return FailWithErrno();
    buffer[static_cast<size_t>(iLength)] = '\0';
    unlink(strTo.c_str()); // left by a crash
    return Succeeded(symlink(buffer.data(), strTo.c_str()));
}

bool MoveAcross(const char* pszFrom, const char* pszTo)
{
    struct stat status
    {};
    if (!Succeeded(GuardedCall({EFault::Stat}, [&] { return lstat(pszFrom, &status); })))
        return false;
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) {
        errno = EXDEV;
        return FailWithErrno();
    }
    const std::string strTemporary = TemporaryNameFor(pszTo);
    CFileHandle copy;
    const bool bCopied =
        S_ISLNK(status.st_mode) ? CopyLink(pszFrom, strTemporary) : CopyFile(pszFrom, strTemporary, copy);
    if (!bCopied)
        return false;
    if (!Rename(strTemporary.c_str(), pszTo)) {
        const SError error = LastError();
        RemoveFile(strTemporary.c_str());
        SetLastError(error);
        return false;
    }
    return FlushDirectory(DirectoryOf(pszTo)) && RemoveFile(pszFrom);
}

/// For file systems that cannot rename without replacing: the link is refused where the name is taken.
bool LinkAndRemove(const char* pszFrom, const char* pszTo)
{
    if (!Succeeded(GuardedCall({EFault::Link, pszFrom, pszTo}, [&] { return link(pszFrom, pszTo); })))
        return false;
    if (RemoveFile(pszFrom))
        return true;
    const SError error = LastError();
    RemoveFile(pszTo);
    SetLastError(error);
    return false;
}

} // namespace

bool MoveFileReplacing(const char* pszFrom, const char* pszTo)
{
    if (Rename(pszFrom, pszTo))
        return true;
    return LastError().iLibError == LIB_CROSS_DEVICE && MoveAcross(pszFrom, pszTo);
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
