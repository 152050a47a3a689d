#pragma once

#include "Platform/CFileHandle.h"
#include "Platform/linux/crash/CMemoryMap.h"
#include "Platform/linux/crash/CStoppedThreads.h"
#include "Platform/linux/crash/CrashRecord.h"

#include <string>
#include <vector>

namespace Platform {

/// Writes the memory dump of a crashed process, in the form of a core file (ELF): the registers of every thread, the
/// one that crashed first, the stacks, the data, the list of modules. Read-only parts are left to the files that they
/// came from, and so are mappings too large to be of use but for the stacks in them.
///
/// The other threads of the process stand still meanwhile. Used once, on one thread.
class CCoreDump
{
public:
    explicit CCoreDump(const SCrashRecord& record);
    /// False: LastError, and the file is gone again.
    bool Write(const char* pszPath);

private:
    struct SSegment
    {
        uint64_t ui64Start;
        uint64_t ui64Bytes;
        uint32_t dwFlags; ///< PF_R and so on
    };
    bool WriteContent();
    void PlanSegments(const std::vector<SMapping>& mappings, const CStoppedThreads& threads);
    void PlanStacks(const SMapping& mapping, const std::vector<uint64_t>& stackPointers);
    bool WriteHeaders(const std::string& strNotes);
    bool CopySegment(int iMemory, const SSegment& segment);
    bool CopyPages(const char* pFrom, size_t nBytes);

    const SCrashRecord& m_record;
    const uint64_t m_ui64Page;
    CFileHandle m_file;
    std::vector<SSegment> m_segments;
};

} // namespace Platform
