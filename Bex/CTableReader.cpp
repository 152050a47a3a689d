#include "Bex/CTableReader.h"

#include "Bex/CFileException.h"

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CTableReader";

} // namespace

bool CTableReader::Open(const CSimpleString& strName)
{
    try {
        m_file.Open(strName, CFile::typeText | CFile::modeRead | CFile::shareDenyWrite | CFile::noDevices);
        m_identity = m_file.Identity();
    } catch (const CFileException&) {
        return false;
    }
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

} // namespace Bex
