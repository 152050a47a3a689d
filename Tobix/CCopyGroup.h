#pragma once

#include "Bex/CSimpleString.h"
#include "Common/CHeldMailFile.h"
#include "Common/CMail.h"
#include "Platform/CFlushGroup.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

/// Queue files that were delivered together with the copies made of them, up to the flush that makes the copies
/// durable: only then may the queue files go. Owned and used by the agent's thread.
///
/// One flush for many copies costs little more than one for a single copy. The limit keeps small what a crash
/// between the flush and the deletions delivers twice.
class CCopyGroup
{
public:
    static constexpr uint32_t MOST_COPIES = 64;

    struct SDelivered
    {
        Bex::CSimpleString strName; ///< of the queue file, bare
        std::unique_ptr<CHeldMailFile> pFile;
    };

    /// Whether a mail with so many copies still fits.
    bool HasRoomFor(uint32_t nCopies) const { return m_nCopies + nCopies <= MOST_COPIES; }
    bool IsEmpty() const { return m_delivered.empty() && m_nCopies == 0; }

    /// Saves a copy as a new file of the directory, under the first of the names that nothing has yet. The path is
    /// that of the last name tried.
    SSaveResult SaveNew(const CMail& mail, EWriteMode mode, const Bex::CSimpleString& strDirectory,
                        const std::function<Bex::CSimpleString()>& NextName, Bex::CSimpleString& strPath);
    /// The same under this very name; a file that has it is replaced.
    SSaveResult Save(const CMail& mail, EWriteMode mode, const Bex::CSimpleString& strDirectory,
                     const Bex::CSimpleString& strName);
    void AddDelivered(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile> pFile);

    /// Flushes the copies and empties the group; false (Platform::LastError) when they may be lost.
    bool Finish(std::vector<SDelivered>& delivered);

private:
    template <class TSave>
    SSaveResult Write(const Bex::CSimpleString& strDirectory, TSave SaveCopy);

    Platform::CFlushGroup m_flush;
    std::vector<SDelivered> m_delivered;
    uint32_t m_nCopies = 0;
};
