#pragma once

#include <string>
#include <vector>

namespace Platform {

/// Makes what was written below some directories durable in one go: one flush per file system, not per file.
///
/// Owned and used by one thread. A directory must be added before the writes that its flush shall answer for: a
/// write-back error since then is reported, not lost. Flush answers false and sets LastError when one of the file
/// systems reports an error.
class CFlushGroup
{
public:
    CFlushGroup() = default;
    ~CFlushGroup();
    CFlushGroup(const CFlushGroup&) = delete;
    CFlushGroup& operator=(const CFlushGroup&) = delete;

    bool Add(const char* pszDirectory);         ///< false: cannot be opened
    bool Flush();                               ///< flushes every file system that was added; they stay in the group
    void MarkWritten(const char* pszDirectory); ///< only file systems marked since the last Flush are flushed

private:
    struct SVolume
    {
        unsigned long nDevice;
        int iDescriptor;
        bool bWritten;
    };
    std::vector<SVolume> m_volumes;
    std::vector<std::pair<std::string, size_t>> m_directories; ///< index into m_volumes
};

} // namespace Platform
