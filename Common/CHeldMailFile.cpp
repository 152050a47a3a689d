#include "Common/CHeldMailFile.h"

#include "Bex/CFileException.h"

#include <array>

namespace {

constexpr char SOURCE_FILE[] = "Common/HeldMailFile";
constexpr uint32_t PIECE = 65536;

} // namespace

void CHeldMailFile::Take(const Bex::CSimpleString& strPath)
{
    m_strName = strPath;
    Platform::IdentityOf(strPath.Text(), m_identity); // a failure is told by the opening
    Open(strPath, modeRead | typeBinary | shareExclusive | onlyRegular | onlyComplete);
    m_identity = CFile::Identity();
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

bool CHeldMailFile::RemoveIfStill()
{
    Platform::SFileIdentity present;
    return IsStill(present) && CFile::RemoveIfStill(Name(), present);
}

bool CHeldMailFile::MoveIfStill(const Bex::CSimpleString& strTarget)
{
    Platform::SFileIdentity present;
    if (!IsStill(present))
        return false;
    LetGo();
    Move(Name(), strTarget);
    return true;
}

bool CHeldMailFile::IsStill(Platform::SFileIdentity& present)
{
    if (!Platform::IdentityOf(Name().Text(), present)) // gone, or nobody can tell which file it is
        Bex::ThrowFileException(SOURCE_FILE, __LINE__);
    return present == m_identity || (present.IsSameFile(m_identity) && HoldsWhatWasRead(present));
}

bool CHeldMailFile::HoldsWhatWasRead(const Platform::SFileIdentity& present)
{
    const uint64_t nBefore = m_digest.Value();
    CFile again;
    if (!IsOpen())
        again.Open(Name(), modeRead | typeBinary | shareDenyWrite | onlyRegular);
    CFile& file = IsOpen() ? static_cast<CFile&>(*this) : again;
    file.CFile::Seek(0, Platform::ESeekFrom::Begin);
    CContentDigest digest;
    std::array<char, PIECE> piece;
    for (uint32_t nRead = 1; nRead > 0; digest.Add(piece.data(), nRead))
        nRead = file.CFile::Read(piece.data(), PIECE);
    if (digest.Value() != nBefore)
        return false;
    m_identity = present;
    return true;
}

void CHeldMailFile::LetGo()
{
    if (IsOpen())
        Close();
}
