#include "Platform/linux/thread/CNameLockFile.h"

#include "Platform/Errors.h"
#include "Platform/linux/base/GuardedCall.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
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

CDescriptor OpenFile(int iDirectory, bool bMake)
{
    const int iFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | (bMake ? O_CREAT : 0);
    CDescriptor file(
        GuardedCall({EFault::LockName}, [&] { return openat(iDirectory, "names", iFlags, S_IRUSR | S_IWUSR); }));
    if (file.IsValid() && !IsOursAlone(file.Get(), S_IFREG))
        return {};
    return file;
}

int SetLock(int iDescriptor, short iType, int64_t iByte)
{
    struct flock range
    {};
    range.l_type = iType;
    range.l_whence = SEEK_SET;
    range.l_start = iByte;
    range.l_len = 1;
    return fcntl(iDescriptor, F_OFD_SETLK, &range);
}

} // namespace

std::shared_ptr<CNameLockFile> CNameLockFile::Open(const std::vector<std::string>& bases)
{
    auto pFile = std::make_shared<CNameLockFile>();
    // Looked for once more after one was made: another process may have found another place at the same time.
    if (pFile->FindPlaces(bases) && (!pFile->m_places.empty() || (Make(bases) && pFile->FindPlaces(bases))))
        return pFile;
    SetLastError(ErrorFromErrno(errno));
    return nullptr;
}

/// False, with errno, when a file that others may use could not be opened for want of something.
bool CNameLockFile::FindPlaces(const std::vector<std::string>& bases)
{
    for (const std::string& strBase : bases) {
        if (!OpenPlace(strBase, false, m_places) && IsShortage(ErrorFromErrno(errno)))
            return false;
    }
    return true;
}

/// False, with errno of the last base that exists, when no base can be used.
bool CNameLockFile::Make(const std::vector<std::string>& bases)
{
    int iErrno = ENOENT;
    for (const std::string& strBase : bases) {
        std::vector<SPlace> made;
        if (OpenPlace(strBase, true, made))
            return true;
        if (errno != ENOENT)
            iErrno = errno;
    }
    errno = iErrno;
    return false;
}

std::string CNameLockFile::PlaceBelow(const std::string& strBase)
{
    return strBase + "/tobix-" + std::to_string(geteuid());
}

bool CNameLockFile::OpenPlace(const std::string& strBase, bool bMake, std::vector<SPlace>& places)
{
    const std::string strPath = PlaceBelow(strBase);
    if (!IsSafeBase(strBase.c_str()) || (bMake && mkdir(strPath.c_str(), S_IRWXU) != 0 && errno != EEXIST))
        return false;
    CDescriptor directory = OpenDirectory(strPath.c_str());
    if (!directory.IsValid())
        return false;
    CDescriptor file = OpenFile(directory.Get(), bMake);
    if (!file.IsValid())
        return false;
    places.push_back({std::move(directory), std::move(file)});
    return true;
}

CNameLockFile::EResult CNameLockFile::TryLock(int64_t iByte)
{
    for (size_t nPlace = 0; nPlace < m_places.size(); ++nPlace) {
        const EResult result = TryLockIn(m_places[nPlace].file.Get(), iByte);
        if (result == EResult::Locked)
            continue;
        while (nPlace > 0)
            SetLock(m_places[--nPlace].file.Get(), F_UNLCK, iByte);
        return result;
    }
    return EResult::Locked;
}

CNameLockFile::EResult CNameLockFile::TryLockIn(int iFile, int64_t iByte)
{
    if (GuardedCall({EFault::LockName}, [&] { return SetLock(iFile, F_WRLCK, iByte); }) != 0) {
        if (errno == EAGAIN || errno == EACCES)
            return EResult::Busy;
        if (errno == ESTALE || errno == ENOTCONN) // removed by another host, or its file system was mounted anew
            return EResult::Replaced;
        SetLastError(ErrorFromErrno(errno));
        return EResult::Failed;
    }
    // Looked at after the lock: others that opened the file later would not see a lock on a removed one.
    struct stat status
    {};
    if (fstat(iFile, &status) == 0 && status.st_nlink > 0)
        return EResult::Locked;
    SetLock(iFile, F_UNLCK, iByte);
    return EResult::Replaced;
}

void CNameLockFile::Unlock(int64_t iByte)
{
    for (const SPlace& place : m_places)
        GuardedCall({EFault::UnlockName}, [&] { return SetLock(place.file.Get(), F_UNLCK, iByte); });
}

} // namespace Platform
