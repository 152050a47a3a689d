#pragma once

#include "Bex/CSimpleString.h"
#include "Common/CHeldMailFile.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string_view>
#include <unordered_set>
#include <vector>

/// The queue files that are done with: they have been delivered and are to be deleted, or have failed and are to be
/// moved to the error directory. Used by the agent's thread.
///
/// A file that cannot leave stays listed, so that it is not delivered again; that is logged once, and it is tried again
/// about once a second. A name that stands for another file or other content by now is dropped: that is new mail. The
/// files stay taken until they are gone; those of many failed deletions, which would keep the process from opening
/// others, do not. What a list still holds at its end waits, taken, for another one to adopt it: the agent of before a
/// restart, or one that was given up, leaves it to the next.
class CDeletionList
{
public:
    static constexpr size_t MOST_HELD = 256;
    static constexpr std::string_view FAILED_SUFFIX = ".failed"; ///< behind the name that a mail had in the queue

    CDeletionList() = default;
    ~CDeletionList();
    CDeletionList(const CDeletionList&) = delete;
    CDeletionList& operator=(const CDeletionList&) = delete;

    void Adopt(const Bex::CSimpleString& strErrorDirectory); ///< to which what has failed moves from now on

    /// With an empty target it is to be deleted. A file that could not be taken is known as well.
    void Add(std::unique_ptr<CHeldMailFile> pFile, const Bex::CSimpleString& strTarget = {});
    bool Contains(const Bex::CSimpleString& strPath) const { return m_paths.contains(strPath.View()); }
    bool IsEmpty() const { return m_paths.empty(); }
    bool HasKept() const { return !m_kept.empty(); } ///< files that could not leave

    /// For the end of the agent: what failed and could not be moved gets a name behind which no start sees new mail.
    void SetFailedAside();
    /// Takes up what an earlier agent, also of another process, has set aside in that directory of the queue.
    void AdoptFailed(const Bex::CSimpleString& strQueue, const Bex::CSimpleString& strErrorDirectory);

    /// Lets every listed file leave that can. True when a name was met that stands for new mail.
    bool RemoveDelivered();

    enum class EOutcome { Gone, Replaced, Kept };
    struct SEntry
    {
        std::unique_ptr<CHeldMailFile> pFile;
        Bex::CSimpleString strTarget;
        bool bLogged = false; ///< that it cannot leave
        EOutcome outcome = EOutcome::Kept;
    };
    using Entries = std::list<SEntry>;

    /// The same in parts, so that another thread may let go what was added by Know: the list knows the file.
    SEntry& Know(Entries& entries, std::unique_ptr<CHeldMailFile> pFile);
    static void LetLeave(Entries& entries); ///< each that can, on any thread
    bool Settle(Entries& entries);          ///< after that: what could not leave is tried again. As RemoveDelivered
    std::vector<std::unique_ptr<CHeldMailFile>> Forget(Entries& entries); ///< instead: they are not done with

private:
    struct SOrphans;
    static SOrphans& Orphans(); ///< of the process
    bool Try(Entries& entries);
    void Keep(Entries& entries, Entries::iterator entry);
    static EOutcome Remove(SEntry& entry);

    Entries m_entries; ///< not tried yet, oldest first
    Entries m_kept;
    uint64_t m_nRetryTicks = 0;                   ///< when these are tried again
    std::unordered_set<std::string_view> m_paths; ///< of both
};
