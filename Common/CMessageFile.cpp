// The file operations of CMessage: a mail file is read and written under the mutex of its name.

#include "Bex/CFileException.h"
#include "Bex/CMutex.h"
#include "Bex/CReplacingFile.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/CHeldMailFile.h"
#include "Common/CMessage.h"

namespace {

constexpr char SOURCE_FILE[] = "Common/Message";
constexpr unsigned LOCK_WAIT_MILLIS = 10000;
constexpr int64_t SHORTEST_MAIL = 3;

/// The file's name without directory and extension; a name that is all extension is taken whole.
Bex::CSimpleString LockName(std::string_view path)
{
    path = Bex::NameOf(path);
    size_t nDot = path.rfind('.');
    return Bex::CSimpleString(nDot == 0 ? path : path.substr(0, nDot));
}

/// Without the lock the file is busy: the library error is then LIB_DEADLOCK.
bool LockMailFile(Bex::CMutex& mutex, Platform::SError& error, const std::function<void()>& BeforeWaiting)
{
    if (mutex.Lock(LOCK_WAIT_MILLIS, BeforeWaiting))
        return true;
    error = {Platform::LIB_DEADLOCK, Platform::LastError().dwSysError};
    if (error.dwSysError == Platform::SYS_TIMEOUT)
        Bex::LogError(Bex::MainLog(), "CMutex::Lock failed in %s:%d, error=%d", SOURCE_FILE, __LINE__,
                      static_cast<int>(error.dwSysError));
    return false;
}

} // namespace

SLoadResult CMessage::Load(const Bex::CSimpleString& strPath, bool bHeadersOnly)
{
    Bex::CFile file;
    return Load(strPath, bHeadersOnly, file);
}

SLoadResult CMessage::Load(const Bex::CSimpleString& strPath, bool bHeadersOnly, Bex::CFile& file)
{
    constexpr uint32_t MODE =
        Bex::CFile::modeRead | Bex::CFile::typeBinary | Bex::CFile::shareDenyWrite | Bex::CFile::onlyRegular;
    return LoadLocked(strPath, file, bHeadersOnly, [&] {
        if (!file.IsOpen())
            file.Open(strPath, MODE);
    });
}

SLoadResult CMessage::Load(const Bex::CSimpleString& strPath, CHeldMailFile& file,
                           const std::function<void()>& BeforeWaiting)
{
    try {
        const SLoadResult loaded = LoadLocked(
            strPath, file, false, [&] { file.Take(strPath); }, BeforeWaiting);
        file.LookUnlessTaken(strPath);
        return loaded;
    } catch (...) {
        file.LookUnlessTaken(strPath);
        throw;
    }
}

template <class TOpen>
SLoadResult CMessage::LoadLocked(const Bex::CSimpleString& strPath, Bex::CFile& file, bool bHeadersOnly, TOpen Open,
                                 const std::function<void()>& BeforeWaiting)
{
    Bex::CMutex mutex(LockName(strPath));
    Platform::SError error;
    if (!LockMailFile(mutex, error, BeforeWaiting))
        return SLoadResult::Failure(error);
    try {
        Open();
        if (file.Seek(0, Platform::ESeekFrom::End) < SHORTEST_MAIL)
            return SLoadResult::TooShort();
        return Read(file, bHeadersOnly);
    } catch (const Bex::CFileException& exception) {
        return SLoadResult::Failure(exception.Error());
    }
}

SSaveResult CMessage::Save(const Bex::CSimpleString& strPath, EWriteMode mode, const SSaveOptions& options) const
{
    return SaveAs(strPath, mode, true, options);
}

SSaveResult CMessage::SaveNew(const Bex::CSimpleString& strPath, EWriteMode mode, const SSaveOptions& options) const
{
    return SaveAs(strPath, mode, false, options);
}

SSaveResult CMessage::SaveAs(const Bex::CSimpleString& strPath, EWriteMode mode, bool bReplace,
                             const SSaveOptions& options) const
{
    Bex::CMutex mutex(LockName(strPath));
    Platform::SError error;
    if (!LockMailFile(mutex, error, options.BeforeWaiting))
        return {ESaveResult::Failed, error};
    constexpr SSaveResult TAKEN{ESaveResult::Exists, {Platform::LIB_EXISTS, Platform::SYS_ALREADY_EXISTS}};
    try {
        // A taken name is seen before all of the mail is written for nothing.
        if (!bReplace && Bex::CFile::Exists(strPath))
            return TAKEN;
        const char* const pszTemporary = options.strTemporary.IsEmpty() ? nullptr : options.strTemporary.Text();
        auto pFile = std::make_unique<Bex::CReplacingFile>(strPath, pszTemporary);
        if (const SSaveResult written = Write(*pFile, mode); !written)
            return written;
        const bool bOrdered = pFile->StartWriteOut();
        if (!bOrdered && options.bOrdered)
            pFile->MakeDurable();
        if (!bOrdered && options.pUnnamed != nullptr)
            *options.pUnnamed = std::move(pFile);
        else if (bReplace)
            pFile->Commit();
        else if (!pFile->CommitNew())
            return TAKEN;
        return {};
    } catch (const Bex::CFileException& exception) {
        return {ESaveResult::Failed, exception.Error()};
    }
}
