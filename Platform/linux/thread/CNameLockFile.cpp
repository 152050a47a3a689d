#include "Platform/linux/thread/CNameLockFile.h"

#include "Platform/Errors.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace Platform {

namespace {

constexpr mode_t ANY_OTHER = S_IRWXG | S_IRWXO;
constexpr mode_t OTHER_WRITERS = S_IWGRP | S_IWOTH;

/// Others must be unable to rename or remove what we make in it.
bool IsSafeBase(const char* pszBase)
{
    struct stat status
    {};
    if (stat(pszBase, &status) != 0)
        return false;
    const bool bTrustedOwner = status.st_uid == 0 || status.st_uid == geteuid();
    const bool bKeepsOthersOff = (status.st_mode & OTHER_WRITERS) == 0 || (status.st_mode & S_ISVTX) != 0;
    if (S_ISDIR(status.st_mode) && bTrustedOwner && bKeepsOthersOff)
        return true;
    errno = EACCES;
    return false;
}

/// The base cannot serve anyone of this user here; the next one may.
bool IsUnusable(int iErrno) { return iErrno == ENOENT || iErrno == EACCES || iErrno == EROFS; }

bool IsOursAlone(int iDescriptor, mode_t kind)
{
    struct stat status
    {};
    if (fstat(iDescriptor, &status) != 0)
        return false;
    if ((status.st_mode & S_IFMT) == kind && status.st_uid == geteuid() && (status.st_mode & ANY_OTHER) == 0)
        return true;
    errno = EPERM;
    return false;
}

/// What is there already must be a directory of ours: a link or another user's directory is refused.
CDescriptor OpenDirectory(const char* pszPath)
{
    CDescriptor directory(open(pszPath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!directory.IsValid() || !IsOursAlone(directory.Get(), S_IFDIR))
        return {};
    flock(directory.Get(), LOCK_SH | LOCK_NB); // cleaners of old files pass over a locked directory
    return directory;
}

CDescriptor OpenFile(int iDirectory)
{
    CDescriptor file(openat(iDirectory, "names", O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file.IsValid() && !IsOursAlone(file.Get(), S_IFREG))
        return {};
    return file;
}

bool SetLock(int iDescriptor, short iType, int64_t iByte)
{
    struct flock range
    {};
    range.l_type = iType;
    range.l_whence = SEEK_SET;
    range.l_start = iByte;
    range.l_len = 1;
    return fcntl(iDescriptor, F_OFD_SETLK, &range) == 0;
}

} // namespace

std::shared_ptr<CNameLockFile> CNameLockFile::Open(std::initializer_list<const char*> bases)
{
    for (const char* pszBase : bases) {
        const std::string strPath = std::string(pszBase) + "/tobix-" + std::to_string(geteuid());
        if (!IsSafeBase(pszBase) || (mkdir(strPath.c_str(), S_IRWXU) != 0 && errno != EEXIST)) {
            if (IsUnusable(errno))
                continue;
            break;
        }
        CDescriptor directory = OpenDirectory(strPath.c_str());
        if (!directory.IsValid())
            break;
        CDescriptor file = OpenFile(directory.Get());
        if (file.IsValid())
            return std::shared_ptr<CNameLockFile>(new CNameLockFile(std::move(directory), std::move(file)));
        if (errno != EROFS)
            break;
    }
    SetLastError(ErrorFromErrno(errno));
    return nullptr;
}

CNameLockFile::CNameLockFile(CDescriptor directory, CDescriptor file)
    : m_directory(std::move(directory)), m_file(std::move(file))
{}

CNameLockFile::EResult CNameLockFile::TryLock(int64_t iByte)
{
    if (!SetLock(m_file.Get(), F_WRLCK, iByte)) {
        if (errno == EAGAIN || errno == EACCES)
            return EResult::Busy;
        SetLastError(ErrorFromErrno(errno));
        return EResult::Failed;
    }
    // Looked at after the lock: others that opened the file later would not see a lock on a removed one.
    struct stat status
    {};
    if (fstat(m_file.Get(), &status) == 0 && status.st_nlink > 0)
        return EResult::Locked;
    Unlock(iByte);
    return EResult::Replaced;
}

void CNameLockFile::Unlock(int64_t iByte) { SetLock(m_file.Get(), F_UNLCK, iByte); }

} // namespace Platform
