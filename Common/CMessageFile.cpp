// The file operations of CMessage: a mail file is read and written under the mutex of its name.

#include "Bex/CFileException.h"
#include "Bex/CMutex.h"
#include "Bex/Log.h"
#include "Common/CMD5.h"
#include "Common/CMessage.h"
#include "Common/Encodings.h"
#include "Platform/FileSystem.h"
#include "Platform/Process.h"

namespace {

constexpr char SOURCE_FILE[] = "Common/Message";
constexpr unsigned LOCK_WAIT_MILLIS = 10000;
constexpr int64_t SHORTEST_MAIL = 3;
constexpr size_t LONGEST_NAME = 255;

size_t NameStart(std::string_view path) { return path.rfind('/') + 1; }

/// The file's name without directory and extension; a name that is all extension is taken whole.
Bex::CSimpleString LockName(std::string_view path)
{
    path.remove_prefix(NameStart(path));
    size_t nDot = path.rfind('.');
    return Bex::CSimpleString(nDot == 0 ? path : path.substr(0, nDot));
}

/// On a time-out the file counts as busy: the library error is LIB_DEADLOCK.
bool LockMailFile(Bex::CMutex& mutex)
{
    if (mutex.Lock(LOCK_WAIT_MILLIS))
        return true;
    Platform::SError error = Platform::LastError();
    Bex::LogError(Bex::MainLog(), "CMutex::Lock failed in %s:%d, error=%d", SOURCE_FILE, __LINE__,
                  static_cast<int>(error.dwSysError));
    mutex.Close();
    if (error.iLibError == Platform::LIB_TIMED_OUT)
        error.iLibError = Platform::LIB_DEADLOCK;
    Platform::SetLastError(error);
    return false;
}

/// Removes a file that did not get its final name.
class CTemporaryFile
{
public:
    explicit CTemporaryFile(const Bex::CSimpleString& strPath) : m_strPath(strPath) {}
    ~CTemporaryFile()
    {
        if (m_bPresent)
            Platform::RemoveFile(m_strPath.Text());
    }
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;

    void Create(Bex::CFile& file)
    {
        file.Open(m_strPath, Bex::CFile::modeWrite | Bex::CFile::modeCreate | Bex::CFile::modeTruncate |
                                 Bex::CFile::shareExclusive | Bex::CFile::typeBinary);
        m_bPresent = true;
    }
    void Rename(const Bex::CSimpleString& strTarget)
    {
        Bex::CFile::Move(m_strPath, strTarget);
        m_bPresent = false;
    }
    bool RenameNoReplace(const Bex::CSimpleString& strTarget)
    {
        m_bPresent = !Platform::RenameNoReplace(m_strPath.Text(), strTarget.Text());
        return !m_bPresent;
    }

private:
    Bex::CSimpleString m_strPath;
    bool m_bPresent = false;
};

} // namespace

bool CMessage::Load(const Bex::CSimpleString& strPath, bool bHeadersOnly)
{
    Platform::ClearLastError();
    Bex::CMutex mutex(LockName(strPath));
    if (!LockMailFile(mutex))
        return false;
    bool bLoaded = false;
    Platform::SError error;
    try {
        Bex::CFile file;
        file.Open(strPath,
                  Bex::CFile::modeRead | Bex::CFile::typeBinary | Bex::CFile::shareDenyWrite | Bex::CFile::onlyRegular);
        if (file.Seek(0, Platform::ESeekFrom::End) >= SHORTEST_MAIL) {
            bLoaded = Read(file, bHeadersOnly);
            error = Platform::LastError();
        }
    } catch (const Bex::CFileException& exception) {
        SetLastError(exception);
        error = Platform::LastError();
    }
    mutex.Close();
    if (!bLoaded)
        Platform::SetLastError(error);
    return bLoaded;
}

bool CMessage::Save(const Bex::CSimpleString& strPath, EWriteMode mode) const
{
    return SaveAs(strPath, mode, true) == ESaveResult::Saved;
}

ESaveResult CMessage::SaveNew(const Bex::CSimpleString& strPath, EWriteMode mode) const
{
    return SaveAs(strPath, mode, false);
}

ESaveResult CMessage::SaveAs(const Bex::CSimpleString& strPath, EWriteMode mode, bool bReplace) const
{
    Platform::ClearLastError();
    Bex::CMutex mutex(LockName(strPath));
    if (!LockMailFile(mutex))
        return ESaveResult::Failed;
    ESaveResult result = ESaveResult::Failed;
    Platform::SError error;
    try {
        // A taken name is seen before all of the mail is written for nothing.
        result =
            !bReplace && Bex::CFile::Exists(strPath) ? ESaveResult::Exists : WriteFile(strPath, mode, bReplace, error);
    } catch (const Bex::CFileException& exception) {
        SetLastError(exception);
        error = Platform::LastError();
    }
    mutex.Close();
    if (result != ESaveResult::Saved)
        Platform::SetLastError(error);
    return result;
}

// The file is closed after it was renamed: its lock tells a cleaner of forgotten temporary files that it is in use.
ESaveResult CMessage::WriteFile(const Bex::CSimpleString& strPath, EWriteMode mode, bool bReplace,
                                Platform::SError& error) const
{
    const Platform::CStartsNoChild alone;
    CTemporaryFile temporary(TemporaryPath(strPath));
    Bex::CFile file;
    temporary.Create(file);
    if (!Write(file, mode)) {
        error = Platform::LastError();
        return ESaveResult::Failed;
    }
    if (bReplace) {
        temporary.Rename(strPath);
    } else if (!temporary.RenameNoReplace(strPath)) {
        error = Platform::LastError();
        return error.iLibError == Platform::LIB_EXISTS ? ESaveResult::Exists : ESaveResult::Failed;
    }
    file.Close();
    return ESaveResult::Saved;
}

Bex::CSimpleString CMessage::TemporaryPath(const Bex::CSimpleString& strPath)
{
    size_t nName = NameStart(strPath);
    std::string_view name = strPath.View().substr(nName);
    Bex::CSimpleString strResult(strPath.View().substr(0, nName));
    strResult += ".";
    if (name.size() + 5 > LONGEST_NAME) { // too long with the dot and the ending: its digest stands for it
        CMD5 digest;
        digest.Update(name.data(), name.size());
        strResult += HexText(digest.Finalise().data(), CMD5::DIGEST_LENGTH);
    } else {
        strResult += name;
    }
    strResult += ".tmp";
    return strResult;
}
