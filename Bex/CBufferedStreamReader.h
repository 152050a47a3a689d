#pragma once

#include "Bex/CFileInputStream.h"
#include "Bex/CSimpleString.h"

#include <cstdint>
#include <string>

namespace Bex {

/// Reads what CBufferedStreamWriter wrote. Each operation answers false, and leaves the value alone, when the file
/// ends before the value does or the bytes are no such value; a failed read raises CFileException.
///
/// Does not own the stream; used by one thread. The buffer is the file's own.
class CBufferedStreamReader
{
public:
    explicit CBufferedStreamReader(CFileInputStream& stream) : m_stream(stream) {}

    bool ReadInt8(int8_t& iValue);
    bool ReadInt32(int32_t& iValue);
    bool ReadInt64(int64_t& iValue);
    bool ReadDouble(double& dValue);
    bool ReadString(CSimpleString& strText);

private:
    bool ReadInteger(uint64_t& ui64Value, uint32_t nBytes);
    bool ReadBytes(std::string& strBytes);

    CFileInputStream& m_stream;
};

} // namespace Bex
