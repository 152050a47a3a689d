#include "Platform/CTemporaryFile.h"

#include "Platform/FileSystem.h"
#include "Platform/linux/file/Flush.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform {

namespace {

constexpr unsigned MOST_NAMES = 100;
constexpr size_t LONGEST_KEPT_NAME = 240; ///< leaves room for what makes a temporary name of it
constexpr mode_t PERMISSIONS = S_IRWXU | S_IRWXG | S_IRWXO;
constexpr uid_t SAME_OWNER = static_cast<uid_t>(-1);

size_t NameStart(const std::string& strPath) { return strPath.rfind('/') + 1; }

/// Of a long name the end is kept, by which cleaners know it.
std::string TemporaryPathFor(const std::string& strTarget)
{
    const size_t nName = NameStart(strTarget);
    const size_t nLength = strTarget.size() - nName;
    const size_t nCut = nLength > LONGEST_KEPT_NAME ? nLength - LONGEST_KEPT_NAME : 0;
    return strTarget.substr(0, nName) + "." + strTarget.substr(nName + nCut) + ".tmp";
}

/// "a/.name" and "a/name" become "a/.1.name".
std::string NumberedPath(const std::string& strPath, unsigned nNumber)
{
    const size_t nName = NameStart(strPath);
    const std::string strName = strPath.substr(nName);
    return strPath.substr(0, nName) + "." + std::to_string(nNumber) + (strName.starts_with('.') ? "" : ".") + strName;
}

} // namespace

CTemporaryFile::~CTemporaryFile()
{
    if (!m_bPresent)
        return;
    const SError error = LastError(); // the failure that led here is the one to tell
    RemoveFile(m_strPath.c_str());
    SetLastError(error);
}

template <class TMake>
bool CTemporaryFile::MakeUnder(const std::string& strPath, TMake Make)
{
    for (unsigned nNumber = 0; nNumber < MOST_NAMES; ++nNumber) {
        m_strPath = nNumber == 0 ? strPath : NumberedPath(strPath, nNumber);
        m_bPresent = Make();
        const SError error = LastError();
        if (!m_bPresent && error.iLibError == LIB_EXISTS && RemoveUnlessInUse(m_strPath.c_str()))
            m_bPresent = Make();
        if (m_bPresent)
            return true;
        // Somebody may have taken what we had just made for a leftover.
        if (error.iLibError != LIB_EXISTS && error.dwSysError != SYS_SHARING_VIOLATION)
            return false;
    }
    errno = EBUSY;
    return FailWithErrno();
}

bool CTemporaryFile::Create(const char* pszTarget, CFileHandle& writer, const char* pszTemporary, unsigned dwPermission)
{
    m_strTarget = pszTarget;
    const auto Make = [&] {
        return m_holder.Open(
            m_strPath.c_str(),
            {.share = EShare::DenyWrite, .bCreateNew = true, .bOnlyRegular = true, .dwPermission = dwPermission});
    };
    return MakeUnder(pszTemporary != nullptr ? pszTemporary : TemporaryPathFor(m_strTarget), Make) &&
           writer.OpenWriter(m_holder, m_strPath.c_str());
}

bool CTemporaryFile::CreateLink(const char* pszTarget, const char* pszContent)
{
    m_strTarget = pszTarget;
    return MakeUnder(TemporaryPathFor(m_strTarget), [&] { return Succeeded(symlink(pszContent, m_strPath.c_str())); });
}

bool CTemporaryFile::CreateUnnamed(const char* pszTarget, CFileHandle& writer, unsigned dwPermission)
{
    m_strTarget = pszTarget;
    if (!writer.OpenUnnamed(m_strTarget.substr(0, NameStart(m_strTarget)).append(".").c_str(), dwPermission))
        return LastError().iLibError == LIB_NOT_SUPPORTED && Create(pszTarget, writer, nullptr, dwPermission);
    m_bUnnamed = m_holder.OpenReader(writer, pszTarget);
    return m_bUnnamed;
}

bool CTemporaryFile::Flush() { return FlushDescriptor(m_holder.NativeHandle()); }

bool CTemporaryFile::StartWriteOut()
{
    const int iDescriptor = m_holder.NativeHandle();
    const auto Start = [&] { return sync_file_range(iDescriptor, 0, 0, SYNC_FILE_RANGE_WRITE); };
    return GuardedCall({.kind = EFault::WriteOut, .iDescriptor = iDescriptor}, Start) == 0 || FailWithErrno();
}

bool CTemporaryFile::TakeModeAndOwnerOf(const char* pszPath)
{
    struct stat model
    {
    }, own{};
    if (GuardedCall({EFault::Stat, pszPath}, [&] { return lstat(pszPath, &model); }) != 0)
        return errno == ENOENT || FailWithErrno();
    if (!S_ISREG(model.st_mode))
        return true;
    const int iDescriptor = m_holder.NativeHandle();
    if (fchown(iDescriptor, model.st_uid, model.st_gid) != 0) {
        [[maybe_unused]] const int iIgnored = fchown(iDescriptor, SAME_OWNER, model.st_gid);
    }
    if (fstat(iDescriptor, &own) != 0)
        return FailWithErrno();
    const mode_t mode = model.st_mode & PERMISSIONS;
    return (own.st_mode & PERMISSIONS) == mode || Succeeded(fchmod(iDescriptor, mode));
}

bool CTemporaryFile::Replace() { return RenameReplacing(m_strPath.c_str(), m_strTarget.c_str()) && LetGo(); }

/// Whoever watches for the name opens the file at once and may want it for himself: our lock must be gone by then, but
/// another daemon's cleaner must not take the file for a leftover.
bool CTemporaryFile::TakeName()
{
    if (m_bUnnamed) {
        const std::string strLink = "/proc/self/fd/" + std::to_string(m_holder.NativeHandle());
        const char* const pszTarget = m_strTarget.c_str();
        return Succeeded(GuardedCall({EFault::Link, strLink.c_str(), pszTarget}, [&] {
            return linkat(AT_FDCWD, strLink.c_str(), AT_FDCWD, pszTarget, AT_SYMLINK_FOLLOW);
        }));
    }
    if (!m_holder.LetOthersTake())
        m_holder = CFileHandle();
    if (RenameNoReplace(m_strPath.c_str(), m_strTarget.c_str()))
        return LetGo();
    errno = EBUSY;
    return LastError().iLibError == LIB_NO_ENTRY && FailWithErrno();
}

void CTemporaryFile::Leave() { LetGo(); }

/// Of the file and of its lock; always true.
bool CTemporaryFile::LetGo()
{
    m_bPresent = false;
    m_holder = CFileHandle();
    return true;
}

} // namespace Platform
