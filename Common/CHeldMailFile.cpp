#include "Common/CHeldMailFile.h"

#include "Bex/CFileException.h"
#include "Bex/CThread.h"
#include "Platform/FileSystem.h"

#include <array>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Common/HeldMailFile";
constexpr uint32_t PIECE = 65536;

} // namespace

void CHeldMailFile::Take(const Bex::CSimpleString& strPath)
{
    Open(strPath, modeRead | typeBinary | shareExclusive | onlyRegular | onlyComplete);
    m_identity = CFile::Identity();
}

void CHeldMailFile::LookUnlessTaken(const Bex::CSimpleString& strPath)
{
    if (IsOpen())
        return;
    m_strName = strPath;
    Platform::IdentityOf(strPath.Text(), m_identity);
}

uint32_t CHeldMailFile::Read(void* pBuffer, uint32_t nCount)
{
    const uint32_t nRead = CFile::Read(pBuffer, nCount);
    m_digest.Add(pBuffer, nRead);
    return nRead;
}

int64_t CHeldMailFile::Seek(int64_t iOffset, Platform::ESeekFrom origin)
{
    const int64_t iPosition = CFile::Seek(iOffset, origin);
    if (iPosition == 0)
        m_digest = {};
    return iPosition;
}

bool CHeldMailFile::IsReplaced()
{
    Platform::SFileIdentity present;
    return Platform::IdentityOf(Name().Text(), present) && !Is(present);
}

bool CHeldMailFile::RemoveIfStill()
{
    if (!IsStill())
        return false;
    Remove(Name());
    return true;
}

bool CHeldMailFile::MoveIfStill(const Bex::CSimpleString& strTarget)
{
    if (!IsStill())
        return false;
    LetOthersRead(); // a move to another volume does
    Move(Name(), strTarget);
    return true;
}

bool CHeldMailFile::RenameIfStill(const Bex::CSimpleString& strTarget)
{
    if (!IsStill())
        return false;
    Bex::CThread::EndIfAbandoned();
    if (!Platform::RenameNoReplace(Name().Text(), strTarget.Text()))
        Bex::ThrowFileException(SOURCE_FILE, __LINE__);
    return true;
}

bool CHeldMailFile::IsStill()
{
    Platform::SFileIdentity present;
    if (!Platform::IdentityOf(Name().Text(), present)) // gone, or nobody can tell which file it is
        Bex::ThrowFileException(SOURCE_FILE, __LINE__);
    return Is(present);
}

bool CHeldMailFile::Is(const Platform::SFileIdentity& present)
{
    if (present == m_identity)
        return true;
    if (!present.IsSameFile(m_identity) || !HoldsWhatWasRead())
        return false;
    m_identity = present;
    return true;
}

bool CHeldMailFile::HoldsWhatWasRead()
{
    CFile again;
    if (!IsOpen())
        again.Open(Name(), modeRead | typeBinary | shareDenyWrite | onlyRegular);
    CFile& file = IsOpen() ? static_cast<CFile&>(*this) : again;
    file.CFile::Seek(0, Platform::ESeekFrom::Begin);
    CContentDigest digest;
    std::array<char, PIECE> piece;
    for (uint32_t nRead = 1; nRead > 0; digest.Add(piece.data(), nRead))
        nRead = file.CFile::Read(piece.data(), PIECE);
    return digest.Value() == m_digest.Value();
}

bool CHeldMailFile::LetOthersRead()
{
    if (IsOpen() && m_handle.ShareLock())
        return true;
    LetGo();
    return false;
}

void CHeldMailFile::LetGo()
{
    if (std::exchange(m_bOpen, false))
        m_handle.Close(); // of a file that was only read there is nothing to fail
}
