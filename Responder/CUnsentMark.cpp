#include "Responder/CUnsentMark.h"

#include "Bex/CFile.h"
#include "Platform/FileSystem.h"

#include <stdexcept>

void RemoveIfPresent(const Bex::CSimpleString& strPath)
{
    if (Platform::KindOf(strPath.Text()) != Platform::EPathKind::Missing)
        Bex::CFile::Remove(strPath);
}

CUnsentMark::CUnsentMark(const Bex::CSimpleString& strReport, bool bKeep)
    : m_strPath(Bex::CSimpleString(strReport) += ".unsent"),
      m_bOfEarlierRun(!bKeep && Platform::KindOf(m_strPath.Text()) != Platform::EPathKind::Missing)
{
    if (!bKeep)
        return;
    Bex::CFile file;
    file.Open(m_strPath, Bex::CFile::modeWrite | Bex::CFile::modeCreate | Bex::CFile::typeBinary);
    file.Close();
}

void CUnsentMark::Sent()
{
    RemoveIfPresent(m_strPath);
    if (m_bOfEarlierRun)
        throw std::runtime_error("the notification before this one was not sent: the mail is kept");
}
