#pragma once

#include "Bex/CFile.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

/// Reads the header block of an open mail file, one unfolded field after the other (RFC 5322 2.2.3).
///
/// Reads ahead through a buffer of its own: what it has taken from the file beyond the header block is Buffered().
/// Used by one thread, for as long as the file stays open. Read errors of the file pass through.
class CHeaderReader
{
public:
    enum class EResult { Field, End, TooBig };

    /// Starts at the file's current position.
    CHeaderReader(Bex::CFile& file, uint64_t nMaxBytes, uint32_t nMaxLines);

    /// The next field; each fold in it is CR LF TAB. After End the file goes on behind the blank line, if at all.
    EResult Next(std::string& strField);
    uint64_t Offset() const { return m_nOffset; } ///< of the bytes consumed so far
    std::string_view Buffered() const { return {m_pBuffer.get() + m_nNext, m_nFilled - m_nNext}; }

private:
    static constexpr uint32_t BUFFER_SIZE = 65536;

    bool Fill(); ///< false at the end of the file
    bool ReadLine();
    bool AtContinuation();
    std::string_view TrimmedLine() const;
    bool IsTooBig() const { return m_nOffset > m_nMaxBytes || m_nLines > m_nMaxLines; }

    Bex::CFile& m_file;
    uint64_t m_nMaxBytes;
    uint32_t m_nMaxLines;
    std::unique_ptr<char[]> m_pBuffer;
    uint32_t m_nNext = 0;
    uint32_t m_nFilled = 0;
    uint64_t m_nOffset = 0;
    uint32_t m_nLines = 0;
    std::string m_strLine; ///< what ReadLine read
    bool m_bEnd = false;
};
