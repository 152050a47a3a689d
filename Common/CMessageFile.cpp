// The file operations of CMessage: a mail file is read and written under the mutex of its name.

#include "Bex/CFileException.h"
#include "Bex/CMutex.h"
#include "Bex/Log.h"
#include "Common/CMD5.h"
#include "Common/CMessage.h"
#include "Common/Encodings.h"
#include "Platform/CStartsNoChild.h"
#include "Platform/FileSystem.h"

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

/// Without the lock the file is busy: the library error is then LIB_DEADLOCK.
bool LockMailFile(Bex::CMutex& mutex, Platform::SError& error)
{
    if (mutex.Lock(LOCK_WAIT_MILLIS))
        return true;
    error = {Platform::LIB_DEADLOCK, Platform::LastError().dwSysError};
    Bex::LogError(Bex::MainLog(), "CMutex::Lock failed in %s:%d, error=%d", SOURCE_FILE, __LINE__,
                  static_cast<int>(error.dwSysError));
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

SLoadResult CMessage::Load(const Bex::CSimpleString& strPath, bool bHeadersOnly)
{
    Bex::CMutex mutex(LockName(strPath));
    Platform::SError error;
    if (!LockMailFile(mutex, error))
        return SLoadResult::Failure(error);
    try {
        Bex::CFile file;
        file.Open(strPath,
                  Bex::CFile::modeRead | Bex::CFile::typeBinary | Bex::CFile::shareDenyWrite | Bex::CFile::onlyRegular);
        if (file.Seek(0, Platform::ESeekFrom::End) < SHORTEST_MAIL)
            return SLoadResult::Incomplete();
        return Read(file, bHeadersOnly);
    } catch (const Bex::CFileException& exception) {
        return SLoadResult::Failure(exception.Error());
    }
}

SSaveResult CMessage::Save(const Bex::CSimpleString& strPath, EWriteMode mode) const
{
    return SaveAs(strPath, mode, true);
}

SSaveResult CMessage::SaveNew(const Bex::CSimpleString& strPath, EWriteMode mode) const
{
    return SaveAs(strPath, mode, false);
}

SSaveResult CMessage::SaveAs(const Bex::CSimpleString& strPath, EWriteMode mode, bool bReplace) const
{
    Bex::CMutex mutex(LockName(strPath));
    Platform::SError error;
    if (!LockMailFile(mutex, error))
        return {ESaveResult::Failed, error};
    try {
        // A taken name is seen before all of the mail is written for nothing.
        if (!bReplace && Bex::CFile::Exists(strPath))
            return {ESaveResult::Exists, {Platform::LIB_EXISTS, Platform::SYS_ALREADY_EXISTS}};
        return WriteFile(strPath, mode, bReplace);
    } catch (const Bex::CFileException& exception) {
        return {ESaveResult::Failed, exception.Error()};
    }
}

// The file is closed after it was renamed: its lock tells a cleaner of forgotten temporary files that it is in use.
SSaveResult CMessage::WriteFile(const Bex::CSimpleString& strPath, EWriteMode mode, bool bReplace) const
{
    const Platform::CStartsNoChild alone;
    CTemporaryFile temporary(TemporaryPath(strPath));
    Bex::CFile file;
    temporary.Create(file);
    if (const SSaveResult written = Write(file, mode); !written)
        return written;
    if (bReplace) {
        temporary.Rename(strPath);
    } else if (!temporary.RenameNoReplace(strPath)) {
        const Platform::SError error = Platform::LastError();
        return {error.iLibError == Platform::LIB_EXISTS ? ESaveResult::Exists : ESaveResult::Failed, error};
    }
    file.Close();
    return {};
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
