#pragma once

#include "Bex/CTextFile.h"

#include <cstdint>
#include <string>

namespace Bex {

/// Reads lines of an open text file, which it does not own. Used by one thread.
class CFileInputStream
{
public:
    /// Lines that take more bytes than that in all raise CFileException (LIB_TOO_BIG).
    explicit CFileInputStream(CTextFile& file, uint64_t nMostBytes = UINT64_MAX) : m_file(file), m_nLeft(nMostBytes) {}

    /// One line without its LF and without any CR; the last line needs no LF. What stands behind a NUL in a line is
    /// left out. False at the end, or when the file was not opened as text.
    bool ReadLine(CSimpleString& strLine);
    uint32_t Read(void* pBuffer, uint32_t nCount) { return m_file.Read(pBuffer, nCount); }

private:
    void Take(size_t nBytes);

    CTextFile& m_file;
    uint64_t m_nLeft;           ///< bytes that lines may still take
    std::string m_strCollected; ///< of a line that is not a plain piece of the file's buffer; kept for its space
};

} // namespace Bex
