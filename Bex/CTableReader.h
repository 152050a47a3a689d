#pragma once

#include "Bex/CFileInputStream.h"
#include "Bex/CList.h"
#include "Bex/CSimpleString.h"

#include <cstdint>

namespace Bex {

/// Reads the lines of a table's file, up to a bound: whoever writes the file shall not exhaust the memory.
///
/// Used by one thread, for one load.
class CTableReader
{
public:
    CTableReader(uint64_t nMostBytes, CList<CSimpleString>& lines) : m_stream(m_file, nMostBytes), m_lines(lines) {}

    bool Open(const CSimpleString& strName);              ///< a regular file; false: Platform::LastError tells why
    bool ReadLine(CSimpleString& strLine);                ///< false at the end and beyond the bound; CFileException
    bool IsWithinBound() const { return m_bWithinBound; } ///< if not, it was logged and is Platform::LastError
    void Keep(const CSimpleString& strLine);              ///< appends to the line list, where no empty line comes last
    const Platform::SFileIdentity& Identity() const { return m_identity; } ///< of the open file

private:
    CTextFile m_file;
    CFileInputStream m_stream;
    CList<CSimpleString>& m_lines;
    uint64_t m_nHeldBack = 0; ///< empty lines that no other line has followed yet
    Platform::SFileIdentity m_identity;
    bool m_bWithinBound = true;
};

} // namespace Bex
