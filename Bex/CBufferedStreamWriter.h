#pragma once

#include "Bex/CFileOutputStream.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace Bex {

/// Writes binary values to a stream: integers little-endian, a string as its 32-bit length and its bytes, a double
/// as the string that "%f" gives.
///
/// Collects up to 1000 bytes before it passes them on; the destructor passes on the rest, but cannot tell a failure.
/// Failures raise CFileException. Does not own the stream; used by one thread.
class CBufferedStreamWriter
{
public:
    explicit CBufferedStreamWriter(CFileOutputStream& stream) : m_stream(stream) {}
    ~CBufferedStreamWriter();
    CBufferedStreamWriter(const CBufferedStreamWriter&) = delete;
    CBufferedStreamWriter& operator=(const CBufferedStreamWriter&) = delete;

    void WriteInt8(int8_t iValue);
    void WriteInt32(int32_t iValue);
    void WriteInt64(int64_t iValue);
    void WriteDouble(double dValue);
    void WriteString(std::string_view text);
    void Flush(); ///< to the stream, not to the disk

private:
    void Append(const char* pData, size_t nCount);
    void AppendInteger(uint64_t ui64Value, size_t nBytes);

    CFileOutputStream& m_stream;
    std::array<char, 1000> m_buffer;
    size_t m_nFilled = 0;
};

} // namespace Bex
