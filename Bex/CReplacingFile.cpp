#include "Bex/CReplacingFile.h"

#include "Bex/CFileException.h"
#include "Bex/CThread.h"
#include "Platform/DataOrder.h"

#include <utility>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CReplacingFile";

void Require(bool bSucceeded, int iLine)
{
    if (!bSucceeded)
        ThrowFileException(SOURCE_FILE, iLine);
}

} // namespace

CReplacingFile::CReplacingFile(const CSimpleString& strTarget, const char* pszTemporary)
    : m_strTarget(strTarget), m_pAlone(std::make_unique<Platform::CStartsNoChild>())
{
    Require(m_temporary.Create(strTarget.Text(), m_handle, pszTemporary), __LINE__);
    m_strName = CSimpleString(m_temporary.Path());
    m_dwFlags = typeText | modeWrite;
    m_bOpen = true;
    BeginBuffering();
}

void CReplacingFile::Close()
{
    const std::unique_ptr<Platform::CStartsNoChild> pAlone = std::move(m_pAlone);
    CTextFile::Close();
    m_bComplete = true;
}

/// Before it gets a name.
void CReplacingFile::Complete()
{
    CThread::EndIfAbandoned();
    if (!m_bComplete)
        Close();
}

void CReplacingFile::MakeDurable()
{
    Complete();
    Require(m_temporary.Flush(), __LINE__);
}

bool CReplacingFile::StartWriteOut()
{
    Complete();
    const Platform::EDataOrder order = Platform::DataOrderAt(m_temporary.Path().c_str());
    if (order == Platform::EDataOrder::WithVolume)
        return false;
    Require(order == Platform::EDataOrder::WithFileAlone ? m_temporary.Flush() : m_temporary.StartWriteOut(), __LINE__);
    return true;
}

void CReplacingFile::Commit()
{
    Complete();
    Require(m_temporary.TakeModeAndOwnerOf(m_strTarget.Text()) && m_temporary.Replace(), __LINE__);
}

bool CReplacingFile::CommitNew()
{
    Complete();
    if (m_temporary.TakeName())
        return true;
    Require(Platform::LastError().iLibError == Platform::LIB_EXISTS, __LINE__);
    return false;
}

void CReplacingFile::SetTarget(const CSimpleString& strTarget)
{
    m_strTarget = strTarget;
    m_temporary.SetTarget(strTarget.Text());
}

void CReplacingFile::Leave()
{
    Complete();
    m_temporary.Leave();
}

} // namespace Bex
