#include "Bex/CTextFile.h"

#include "Bex/CFileException.h"

#include <algorithm>
#include <cstring>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CTextFile";
constexpr size_t BUFFER_SIZE = 16384;

} // namespace

CTextFile::~CTextFile()
{
    if (!m_bOpen)
        return;
    try {
        CTextFile::Close();
    } catch (const CException&) { // nobody is left to be told
    }
}

void CTextFile::Open(const CSimpleString& strName, uint32_t dwFlags, uint32_t dwPermission)
{
    CFile::Open(strName, dwFlags, dwPermission);
    BeginBuffering();
}

void CTextFile::BeginBuffering()
{
    m_nNext = m_nFilled = 0;
    m_bWriting = m_bEndOfFile = false;
    try {
        m_buffer.resize(BUFFER_SIZE);
    } catch (const std::bad_alloc&) {
        CloseAfterFailure();
        ThrowFileException(SOURCE_FILE, __LINE__, Platform::LIB_NO_MEMORY, Platform::SYS_NO_MEMORY);
    }
}

void CTextFile::Close()
{
    RequireOpen(__LINE__);
    try {
        Flush();
    } catch (const CException&) {
        CloseAfterFailure();
        throw;
    }
    CFile::Close();
}

uint32_t CTextFile::Read(void* pBuffer, uint32_t nCount)
{
    uint32_t nRead = 0;
    while (nRead < nCount) {
        const std::string_view ready = Buffered();
        if (ready.empty())
            break;
        const size_t nTaken = std::min<size_t>(ready.size(), nCount - nRead);
        std::memcpy(static_cast<char*>(pBuffer) + nRead, ready.data(), nTaken);
        Consume(nTaken);
        nRead += static_cast<uint32_t>(nTaken);
    }
    return nRead;
}

uint32_t CTextFile::Write(const void* pBuffer, uint32_t nCount)
{
    RequireOpen(__LINE__);
    BeginWriting();
    if (nCount > BUFFER_SIZE - m_nFilled)
        Flush();
    if (nCount >= BUFFER_SIZE)
        return CFile::Write(pBuffer, nCount);
    if (nCount > 0)
        std::memcpy(m_buffer.data() + m_nFilled, pBuffer, nCount);
    m_nFilled += nCount;
    return nCount;
}

bool CTextFile::IsEOF()
{
    RequireOpen(__LINE__);
    return m_bEndOfFile && (m_bWriting || m_nNext == m_nFilled);
}

int64_t CTextFile::Seek(int64_t iOffset, Platform::ESeekFrom origin)
{
    RequireOpen(__LINE__);
    Flush();
    DropReadAhead();
    m_bWriting = m_bEndOfFile = false;
    return CFile::Seek(iOffset, origin);
}

int64_t CTextFile::Tell()
{
    RequireOpen(__LINE__);
    const auto iPending = m_bWriting ? static_cast<int64_t>(m_nFilled) : -static_cast<int64_t>(m_nFilled - m_nNext);
    return CFile::Tell() + iPending;
}

int CTextFile::ReadChar()
{
    const std::string_view ready = Buffered();
    if (ready.empty())
        return -1;
    Consume(1);
    return static_cast<unsigned char>(ready.front());
}

void CTextFile::UnreadChar(char c)
{
    RequireOpen(__LINE__);
    if (m_bWriting || m_nNext == 0)
        ThrowFileException(SOURCE_FILE, __LINE__, Platform::LIB_INVALID, Platform::SYS_INVALID_PARAMETER);
    m_buffer[--m_nNext] = c;
    m_bEndOfFile = false;
}

bool CTextFile::ReadString(CSimpleString& strText, uint32_t nMost)
{
    strText = std::string_view();
    while (strText.Length() < nMost) {
        const std::string_view ready = Buffered().substr(0, nMost - strText.Length());
        if (ready.empty())
            break;
        const std::string_view part = ready.substr(0, ready.find('\n')); // npos takes all of it
        const bool bEnded = part.size() < ready.size();
        const size_t nTaken = part.size() + (bEnded ? 1 : 0);
        strText.Append(ready.substr(0, nTaken));
        Consume(nTaken);
        if (bEnded)
            return true;
    }
    return !strText.IsEmpty();
}

void CTextFile::WriteString(std::string_view text)
{
    while (!text.empty()) {
        const std::string_view part = text.substr(0, UINT32_MAX);
        Write(part.data(), static_cast<uint32_t>(part.size()));
        text.remove_prefix(part.size());
    }
}

void CTextFile::Flush()
{
    RequireOpen(__LINE__);
    if (!m_bWriting || m_nFilled == 0)
        return;
    const auto nCount = static_cast<uint32_t>(m_nFilled);
    m_nFilled = 0; // what cannot be written now must not come out behind something else later
    CFile::Write(m_buffer.data(), nCount);
}

std::string_view CTextFile::Buffered()
{
    RequireOpen(__LINE__);
    if (m_bWriting)
        BeginReading();
    if (m_nNext == m_nFilled && !Fill())
        return {};
    return {m_buffer.data() + m_nNext, m_nFilled - m_nNext};
}

void CTextFile::RequireOpen(int iLine) const
{
    if (!m_bOpen)
        ThrowFileException(SOURCE_FILE, iLine, Platform::LIB_INVALID, Platform::SYS_INVALID_HANDLE);
}

bool CTextFile::Fill()
{
    m_nNext = m_nFilled = 0;
    m_nFilled = CFile::Read(m_buffer.data(), static_cast<uint32_t>(m_buffer.size()));
    m_bEndOfFile = m_nFilled == 0;
    return m_nFilled > 0;
}

void CTextFile::BeginReading()
{
    Flush();
    m_bWriting = false;
    m_nNext = m_nFilled = 0;
}

void CTextFile::BeginWriting()
{
    if (m_bWriting)
        return;
    if ((m_dwFlags & (modeWrite | modeReadWrite)) == modeRead)
        ThrowFileException(SOURCE_FILE, __LINE__, Platform::LIB_BAD_HANDLE, Platform::SYS_ACCESS_DENIED);
    DropReadAhead();
    m_bWriting = true;
}

void CTextFile::DropReadAhead()
{
    if (m_bWriting)
        return;
    const auto iAhead = static_cast<int64_t>(m_nFilled - m_nNext);
    m_nNext = m_nFilled = 0;
    if (iAhead > 0)
        CFile::Seek(-iAhead, Platform::ESeekFrom::Current);
}

void CTextFile::CloseAfterFailure() noexcept
{
    m_bOpen = false;
    m_handle.Close();
}

} // namespace Bex
