#include "Bex/CFile.h"

#include "Bex/CFileException.h"
#include "Bex/CThread.h"
#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Platform/FileSystem.h"

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CFile";
constexpr uint32_t ACCESS_BITS = CFile::modeWrite | CFile::modeReadWrite;
constexpr uint32_t SHARE_BITS = 0x70;
constexpr FrozenLine NO_TYPE_LINE = 104;
constexpr FrozenLine NO_WRITER_LINE = 111;
constexpr FrozenLine OPEN_LINE = 150;

[[noreturn]] void Refuse(int iLine, const char* pszReason)
{
    LogError(MainLog(), "%s", pszReason);
    ThrowFileException(SOURCE_FILE, iLine, Platform::LIB_INVALID, Platform::SYS_BAD_ARGUMENTS);
}

void CheckFlags(uint32_t dwFlags)
{
    const uint32_t dwAccess = dwFlags & ACCESS_BITS;
    if ((dwFlags & (CFile::typeText | CFile::typeBinary)) == 0)
        Refuse(NO_TYPE_LINE,
               "must specify either Bex::CFile::typeText or Bex::CFile::typeBinary in call to CFile::Open");
    if ((dwFlags & CFile::modeCreate) != 0 && dwAccess == CFile::modeRead)
        Refuse(NO_WRITER_LINE, "must specify either Bex::CFile::modeWrite or Bex::CFile::modeReadWrite with "
                               "Bex::CFile::modeCreate in call to CFile::Open");
    const bool bTruncatingReader = (dwFlags & CFile::modeTruncate) != 0 && dwAccess == CFile::modeRead;
    if (bTruncatingReader || dwAccess == ACCESS_BITS)
        ThrowFileException(SOURCE_FILE, OPEN_LINE, Platform::LIB_INVALID, Platform::SYS_INVALID_PARAMETER);
}

Platform::EAccess AccessOf(uint32_t dwFlags)
{
    switch (dwFlags & ACCESS_BITS) {
    case CFile::modeRead:
        return Platform::EAccess::Read;
    case CFile::modeWrite:
        return Platform::EAccess::Write;
    default:
        return Platform::EAccess::ReadWrite;
    }
}

Platform::EShare ShareOf(uint32_t dwFlags)
{
    switch (dwFlags & SHARE_BITS) {
    case CFile::shareExclusive:
        return Platform::EShare::Exclusive;
    case CFile::shareDenyWrite:
        return Platform::EShare::DenyWrite;
    case CFile::shareDenyRead:
        return Platform::EShare::DenyRead;
    default:
        return Platform::EShare::DenyNone;
    }
}

void RequireOpen(bool bOpen, int iLine)
{
    if (!bOpen)
        ThrowFileException(SOURCE_FILE, iLine, Platform::LIB_INVALID, Platform::SYS_INVALID_PARAMETER);
}

constexpr int64_t WholeSeconds(int64_t iNanoseconds)
{
    constexpr int64_t SECOND = 1'000'000'000;
    return iNanoseconds / SECOND - (iNanoseconds % SECOND < 0 ? 1 : 0);
}

} // namespace

CFile::~CFile() = default;

void CFile::Open(const CSimpleString& strName, uint32_t dwFlags, uint32_t dwPermission)
{
    CheckFlags(dwFlags);
    if (m_bOpen)
        Close();
    Platform::SOpenMode mode;
    mode.access = AccessOf(dwFlags);
    mode.share = ShareOf(dwFlags);
    mode.bCreate = (dwFlags & modeCreate) != 0;
    mode.bCreateNew = (dwFlags & modeNew) != 0;
    mode.bTruncate = (dwFlags & modeTruncate) != 0;
    mode.bOnlyRegular = (dwFlags & onlyRegular) != 0;
    mode.bNoDevices = (dwFlags & noDevices) != 0;
    mode.bOnlyComplete = (dwFlags & onlyComplete) != 0;
    mode.dwPermission = dwPermission;
    if (!m_handle.Open(strName.Text(), mode))
        ThrowFileException(SOURCE_FILE, OPEN_LINE);
    m_strName = strName;
    m_dwFlags = dwFlags & ~SHARE_BITS;
    m_bOpen = true;
}

void CFile::Close()
{
    RequireOpen(m_bOpen, __LINE__);
    m_bOpen = false;
    if (!m_handle.Close())
        ThrowFileException(SOURCE_FILE, __LINE__);
}

uint32_t CFile::Read(void* pBuffer, uint32_t nCount)
{
    RequireOpen(m_bOpen, __LINE__);
    const int64_t iRead = m_handle.Read(pBuffer, nCount);
    if (iRead < 0)
        ThrowFileException(SOURCE_FILE, __LINE__);
    return static_cast<uint32_t>(iRead);
}

uint32_t CFile::Write(const void* pBuffer, uint32_t nCount)
{
    RequireOpen(m_bOpen, __LINE__);
    const int64_t iWritten = m_handle.Write(pBuffer, nCount);
    if (iWritten < 0)
        ThrowFileException(SOURCE_FILE, __LINE__);
    return static_cast<uint32_t>(iWritten);
}

bool CFile::IsEOF()
{
    const int64_t iPosition = CFile::Tell();
    const int64_t iSize = m_handle.Size();
    if (iSize < 0)
        ThrowFileException(SOURCE_FILE, __LINE__);
    return iPosition >= iSize;
}

int64_t CFile::Seek(int64_t iOffset, Platform::ESeekFrom origin)
{
    RequireOpen(m_bOpen, __LINE__);
    const int64_t iPosition = m_handle.Seek(iOffset, origin);
    if (iPosition < 0)
        ThrowFileException(SOURCE_FILE, __LINE__);
    return iPosition;
}

Platform::SFileIdentity CFile::Identity() const
{
    RequireOpen(m_bOpen, __LINE__);
    Platform::SFileIdentity identity;
    if (!m_handle.Identity(identity))
        ThrowFileException(SOURCE_FILE, __LINE__);
    return identity;
}

int64_t CFile::Tell() { return CFile::Seek(0, Platform::ESeekFrom::Current); }

void CFile::Remove(const CSimpleString& strName)
{
    CThread::EndIfAbandoned();
    if (!Platform::RemoveFile(strName.Text()))
        ThrowFileException(SOURCE_FILE, __LINE__);
}

bool CFile::RemoveUnlessInUse(const CSimpleString& strName)
{
    CThread::EndIfAbandoned();
    if (Platform::RemoveUnlessInUse(strName.Text()))
        return true;
    if (!Platform::IsBusy(Platform::LastError()))
        ThrowFileException(SOURCE_FILE, __LINE__);
    return false;
}

void CFile::Move(const CSimpleString& strFrom, const CSimpleString& strTo)
{
    CThread::EndIfAbandoned();
    if (!Platform::MoveFileReplacing(strFrom.Text(), strTo.Text()))
        ThrowFileException(SOURCE_FILE, __LINE__);
}

SFileTime CFile::GetTimes(const CSimpleString& strName)
{
    Platform::SFileTimes times;
    if (!Platform::GetFileTimes(strName.Text(), times))
        ThrowFileException(SOURCE_FILE, __LINE__);
    return {CTime(WholeSeconds(times.iCreated)), CTime(WholeSeconds(times.iModified)),
            CTime(WholeSeconds(times.iAccessed))};
}

bool CFile::Exists(const CSimpleString& strName)
{
    const Platform::EPathKind kind = Platform::KindOf(strName.Text());
    if (kind == Platform::EPathKind::Failed)
        ThrowFileException(SOURCE_FILE, __LINE__);
    return kind != Platform::EPathKind::Missing;
}

} // namespace Bex
