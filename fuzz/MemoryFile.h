#pragma once

#include "Bex/CFile.h"

#include <algorithm>
#include <string>
#include <string_view>

/// A file in memory for what only reads, writes and seeks.
class CMemoryFile : public Bex::CFile
{
public:
    explicit CMemoryFile(std::string_view content = {}) : m_strContent(content) {}
    const std::string& Content() const { return m_strContent; }

    uint32_t Read(void* pBuffer, uint32_t nCount) override
    {
        const auto nRead = static_cast<uint32_t>(std::min<size_t>(nCount, m_strContent.size() - m_nPosition));
        std::copy_n(m_strContent.begin() + static_cast<std::ptrdiff_t>(m_nPosition), nRead,
                    static_cast<char*>(pBuffer));
        m_nPosition += nRead;
        return nRead;
    }
    uint32_t Write(const void* pBuffer, uint32_t nCount) override
    {
        m_strContent.append(static_cast<const char*>(pBuffer), nCount);
        return nCount;
    }
    int64_t Seek(int64_t iOffset, Platform::ESeekFrom origin) override
    {
        const size_t nBase = origin == Platform::ESeekFrom::Begin     ? 0
                             : origin == Platform::ESeekFrom::Current ? m_nPosition
                                                                      : m_strContent.size();
        m_nPosition = std::min(nBase + static_cast<size_t>(iOffset), m_strContent.size());
        return static_cast<int64_t>(m_nPosition);
    }

private:
    std::string m_strContent;
    size_t m_nPosition = 0;
};
