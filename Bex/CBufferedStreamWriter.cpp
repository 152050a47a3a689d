#include "Bex/CBufferedStreamWriter.h"

#include "Bex/CFileException.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CBufferedStreamWriter";
constexpr size_t LONGEST_DOUBLE = 400; // "%f" of the largest one has 309 digits before the point

} // namespace

CBufferedStreamWriter::~CBufferedStreamWriter()
{
    try {
        Flush();
    } catch (const CException&) { // nobody is left to be told
    }
}

void CBufferedStreamWriter::WriteInt8(int8_t iValue) { AppendInteger(static_cast<uint8_t>(iValue), sizeof iValue); }

void CBufferedStreamWriter::WriteInt32(int32_t iValue) { AppendInteger(static_cast<uint32_t>(iValue), sizeof iValue); }

void CBufferedStreamWriter::WriteInt64(int64_t iValue) { AppendInteger(static_cast<uint64_t>(iValue), sizeof iValue); }

void CBufferedStreamWriter::WriteDouble(double dValue)
{
    char text[LONGEST_DOUBLE];
    const int iLength = std::snprintf(text, sizeof text, "%f", dValue);
    WriteString({text, static_cast<size_t>(iLength)});
}

void CBufferedStreamWriter::WriteString(std::string_view text)
{
    if (text.size() > UINT32_MAX)
        ThrowFileException(SOURCE_FILE, __LINE__, Platform::LIB_TOO_BIG, Platform::SYS_FILE_TOO_LARGE);
    AppendInteger(text.size(), sizeof(uint32_t));
    Append(text.data(), text.size());
}

void CBufferedStreamWriter::Flush()
{
    if (m_nFilled > 0)
        m_stream.Write(m_buffer.data(), static_cast<uint32_t>(std::exchange(m_nFilled, 0)));
}

void CBufferedStreamWriter::Append(const char* pData, size_t nCount)
{
    while (nCount > 0) {
        if (m_nFilled == m_buffer.size())
            Flush();
        const size_t nPart = std::min(nCount, m_buffer.size() - m_nFilled);
        std::memcpy(m_buffer.data() + m_nFilled, pData, nPart);
        m_nFilled += nPart;
        pData += nPart;
        nCount -= nPart;
    }
}

void CBufferedStreamWriter::AppendInteger(uint64_t ui64Value, size_t nBytes)
{
    char bytes[sizeof ui64Value];
    for (size_t n = 0; n < nBytes; ++n)
        bytes[n] = static_cast<char>(ui64Value >> (8 * n) & 0xff);
    Append(bytes, nBytes);
}

} // namespace Bex
