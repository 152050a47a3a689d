#pragma once

#include "Bex/CTextFile.h"

#include <string_view>

namespace Bex {

/// Writes lines to an open text file, which it does not own. Used by one thread.
class CFileOutputStream
{
public:
    explicit CFileOutputStream(CTextFile& file) : m_file(file) {}

    /// The text and one LF; true when all bytes were written, false when the file was not opened as text.
    bool WriteLine(std::string_view line);
    uint32_t Write(const void* pBuffer, uint32_t nCount) { return m_file.Write(pBuffer, nCount); }

private:
    CTextFile& m_file;
};

} // namespace Bex
