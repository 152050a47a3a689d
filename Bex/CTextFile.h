#pragma once

#include "Bex/CFile.h"

#include <string_view>
#include <vector>

namespace Bex {

/// A file with a buffer of its own. What was written reaches the system by Flush, Close or a Seek; the destructor
/// tries, too, but cannot tell a failure. Used by one thread.
class CTextFile : public CFile
{
public:
    ~CTextFile() override;

    void Open(const CSimpleString& strName, uint32_t dwFlags, uint32_t dwPermission = PERMISSION_READ_WRITE) override;
    void Close() override;
    uint32_t Read(void* pBuffer, uint32_t nCount) override;
    uint32_t Write(const void* pBuffer, uint32_t nCount) override;
    bool IsEOF() override; ///< true once a read has hit the end
    int64_t Seek(int64_t iOffset, Platform::ESeekFrom origin) override;
    int64_t Tell() override;

    virtual int ReadChar();                                          ///< the next byte, -1 at the end of the file
    virtual void UnreadChar(char c);                                 ///< one byte, straight after ReadChar
    virtual bool ReadString(CSimpleString& strText, uint32_t nMost); ///< up to and with the next LF; false at the end
    virtual void WriteString(std::string_view text);
    virtual void Flush();

    /// What comes next, as much as the buffer holds: empty only at the end of the file. Valid until the next call.
    std::string_view Buffered();
    void Consume(size_t nCount) { m_nNext += nCount; } ///< takes the first bytes of what Buffered gave

protected:
    void BeginBuffering(); ///< of a file just opened, which is closed when that fails

private:
    void RequireOpen(int iLine) const;
    bool Fill(); ///< false at the end of the file
    void BeginReading();
    void BeginWriting();
    void DropReadAhead(); ///< moves the handle back to where the reader stands
    void CloseAfterFailure() noexcept;

    std::vector<char> m_buffer; ///< what was read ahead or, when writing, what is still to be written
    size_t m_nNext = 0;         ///< of what was read
    size_t m_nFilled = 0;
    bool m_bWriting = false;
    bool m_bEndOfFile = false;
};

} // namespace Bex
