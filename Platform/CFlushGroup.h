#pragma once

#include "Platform/Errors.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

/// Makes what was written below some directories durable in one go: one flush per file system, not per file; where each
/// file is flushed by itself before (EDataOrder::WithFileAlone), one per directory.
///
/// Owned and used by one thread. A directory must be added before the writes that its flush shall answer for: a
/// write-back error since then is reported, not lost. Flush answers false and sets LastError when one of the file
/// systems reports an error on which the caller relies. An empty group holds no descriptor: who unmounts a file system
/// that nobody uses shall find it idle.
class CFlushGroup
{
public:
    CFlushGroup() = default;
    ~CFlushGroup();
    CFlushGroup(const CFlushGroup&) = delete;
    CFlushGroup& operator=(const CFlushGroup&) = delete;

    /// What a flush has to cover. May be flushed on another thread, once, while the group it comes from goes on, but
    /// does not let go of its descriptors. A failure that comes meanwhile is not told to the group's next flush again.
    class CPending
    {
    public:
        /// False when one fails on which the caller relies. The failure of one on which nobody relies is only told.
        bool Flush(SError* pUnpromised = nullptr) const;

    private:
        friend class CFlushGroup;
        struct SWritten
        {
            bool bPromised;
            int iDescriptor;          ///< of the volume
            std::string strDirectory; ///< to be flushed instead, unless it is empty
        };

        static bool FlushOne(const SWritten& written);

        std::vector<SWritten> m_written;
        SError m_missed; ///< of a mark that could not be kept
    };

    bool Add(const char* pszDirectory); ///< false: cannot be opened. May be repeated: one look at the directory
    /// The file systems that were marked since the last time; all stay in the group, so that the next flush wants no
    /// descriptor.
    CPending TakePending();
    bool Flush(SError* pUnpromised = nullptr) { return TakePending().Flush(pUnpromised); }
    void Empty(); ///< without a flush; what has to come later stays
    /// A directory that was never added is added now; when that fails, so does the next Flush. On what is not promised
    /// nobody relies.
    void MarkWritten(const char* pszDirectory, bool bPromised = true);
    void FlushLater(const char* pszDirectory); ///< what was changed there, with the next flush; not promised

private:
    struct SMark
    {
        uint64_t nTake = 0; ///< number of the take that collects it
        size_t nPlace = 0;  ///< in the list of what is written
    };
    struct SVolume
    {
        unsigned long nDevice;
        int iDescriptor;
        bool bByDirectory; ///< its directories have the marks
        SMark mark{};
    };
    struct SDirectory
    {
        size_t nVolume = 0; ///< index into m_volumes
        SMark mark{};
    };
    bool FindVolume(unsigned long nDevice, size_t& nVolume) const;

    std::vector<SVolume> m_volumes;
    std::map<std::string, SDirectory, std::less<>> m_directories;
    std::set<std::string, std::less<>> m_later;
    CPending m_next;
    uint64_t m_nTakes = 1; ///< number of the next take
};

} // namespace Platform
