#pragma once

#include "Bex/CTextFile.h"

#include <string>

namespace Bex {

/// Reads lines of an open text file. Does not own the file.
class CFileInputStream
{
public:
    explicit CFileInputStream(CTextFile& file) : m_file(file) {}

    /// One line without its LF and without any CR; the last line needs no LF. What stands behind a NUL in a line is
    /// left out. False at the end, or when the file was not opened as text.
    bool ReadLine(CSimpleString& strLine);
    uint32_t Read(void* pBuffer, uint32_t nCount) { return m_file.Read(pBuffer, nCount); }

private:
    CTextFile& m_file;
    std::string m_strCollected; ///< of a line that is not a plain piece of the file's buffer; kept for its space
};

} // namespace Bex
