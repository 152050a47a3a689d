#include "Bex/CStorableStringList.h"

#include "Bex/CFileException.h"
#include "Bex/TableFile.h"
#include "Bex/TextFunctions.h"

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CStorableStringList";

} // namespace

bool CStorableStringList::OnLoadLine(CSimpleString&) { return true; }

bool CStorableStringList::Load(const CSimpleString& strFileName)
{
    m_strFileName = strFileName;
    if (!OnBeforeLoad())
        return false;
    CTableReader reader(MOST_TABLE_BYTES, m_lines);
    if (!reader.Open(m_strFileName))
        return false;
    const CScopedLock lock(LockObject());
    m_iFileTime = reader.FileTime();
    RemoveAll();
    m_lines.RemoveAll();
    if (!OnLoadBegin())
        return false;
    try {
        for (CSimpleString strLine; reader.ReadLine(strLine);) {
            reader.Keep(strLine);
            LoadLine(strLine);
        }
    } catch (const CFileException& exception) {
        if (exception.LibError() != Platform::LIB_TOO_BIG)
            throw;
        LogCaught(exception, SOURCE_FILE, __LINE__, m_strFileName.Text());
        return false;
    }
    if (!OnLoadEnd())
        return false;
    OnAfterLoad();
    m_bLoaded = true;
    m_bModified = false;
    return true;
}

void CStorableStringList::LoadLine(std::string_view line)
{
    const std::string_view entry = line.substr(0, line.find('#'));
    CSimpleString strEntry(m_bTrim ? TrimmedView(entry) : entry);
    if (!strEntry.IsEmpty() && OnLoadLine(strEntry))
        Append(std::move(strEntry));
}

bool CStorableStringList::HasFileChanged() const
{
    int64_t iTime = 0;
    return GetLastWriteTime(m_strFileName, iTime) && iTime > m_iFileTime;
}

} // namespace Bex
