#include "Bex/CBufferedStreamReader.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <system_error>

namespace Bex {

bool CBufferedStreamReader::ReadInt8(int8_t& iValue)
{
    uint64_t ui64Value = 0;
    if (!ReadInteger(ui64Value, sizeof iValue))
        return false;
    iValue = static_cast<int8_t>(ui64Value);
    return true;
}

bool CBufferedStreamReader::ReadInt32(int32_t& iValue)
{
    uint64_t ui64Value = 0;
    if (!ReadInteger(ui64Value, sizeof iValue))
        return false;
    iValue = static_cast<int32_t>(ui64Value);
    return true;
}

bool CBufferedStreamReader::ReadInt64(int64_t& iValue)
{
    uint64_t ui64Value = 0;
    if (!ReadInteger(ui64Value, sizeof iValue))
        return false;
    iValue = static_cast<int64_t>(ui64Value);
    return true;
}

bool CBufferedStreamReader::ReadDouble(double& dValue)
{
    std::string strBytes;
    double dParsed = 0;
    if (!ReadBytes(strBytes))
        return false;
    const char* const pEnd = strBytes.data() + strBytes.size();
    const auto result = std::from_chars(strBytes.data(), pEnd, dParsed);
    if (result.ec != std::errc() || result.ptr != pEnd)
        return false;
    dValue = dParsed;
    return true;
}

bool CBufferedStreamReader::ReadString(CSimpleString& strText)
{
    std::string strBytes;
    if (!ReadBytes(strBytes))
        return false;
    strText = std::string_view(strBytes);
    return true;
}

bool CBufferedStreamReader::ReadInteger(uint64_t& ui64Value, uint32_t nBytes)
{
    unsigned char bytes[sizeof ui64Value];
    if (m_stream.Read(bytes, nBytes) != nBytes)
        return false;
    for (uint32_t n = 0; n < nBytes; ++n)
        ui64Value |= static_cast<uint64_t>(bytes[n]) << (8 * n);
    return true;
}

bool CBufferedStreamReader::ReadBytes(std::string& strBytes)
{
    uint64_t ui64Left = 0;
    if (!ReadInteger(ui64Left, sizeof(uint32_t)))
        return false;
    char part[1000]; // a damaged length takes no more memory than the file has bytes
    while (ui64Left > 0) {
        const auto nPart = static_cast<uint32_t>(std::min<uint64_t>(ui64Left, sizeof part));
        if (m_stream.Read(part, nPart) != nPart)
            return false;
        strBytes.append(part, nPart);
        ui64Left -= nPart;
    }
    return true;
}

} // namespace Bex
