#include "Bex/CTableReader.h"

#include "Bex/CFileException.h"
#include "Platform/FileSystem.h"

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CTableReader";

} // namespace

bool CTableReader::Open(const CSimpleString& strName)
{
    // The time comes first: what is written between the two is then read again, never missed.
    int64_t iTime = 0;
    GetLastWriteTime(strName, iTime);
    try {
        m_file.Open(strName, CFile::typeText | CFile::modeRead | CFile::shareDenyWrite);
    } catch (const CFileException&) {
        return false;
    }
    m_iFileTime = iTime;
    return true;
}

bool CTableReader::ReadLine(CSimpleString& strLine)
{
    try {
        return m_stream.ReadLine(strLine);
    } catch (const CFileException& exception) {
        if (exception.LibError() != Platform::LIB_TOO_BIG)
            throw;
        LogCaught(exception, SOURCE_FILE, __LINE__, m_file.Name().Text());
        Platform::SetLastError(exception.Error());
        m_bWithinBound = false;
        return false;
    }
}

void CTableReader::Keep(const CSimpleString& strLine)
{
    if (strLine.IsEmpty()) {
        ++m_nHeldBack;
        return;
    }
    for (; m_nHeldBack > 0; --m_nHeldBack)
        m_lines.Append(CSimpleString());
    m_lines.Append(strLine);
}

bool GetLastWriteTime(const CSimpleString& strName, int64_t& iTime)
{
    Platform::SFileTimes times;
    if (!Platform::GetFileTimes(strName.Text(), times))
        return false;
    iTime = times.iModified;
    return true;
}

} // namespace Bex
