#pragma once

#include "Bex/CSideJob.h"
#include "Platform/Errors.h"
#include "Tobix/CCopyGroup.h"
#include "Tobix/CDeletionList.h"

#include <cstdint>
#include <memory>
#include <vector>

/// Flushes what a group holds and lets its queue files go on a second thread, while the agent stores the next copies.
///
/// Owned by the agent and used on its thread. One part is aside at a time, and the group and the list have to outlive
/// it; a flush that takes longer than the storing of a whole group is not worth a thread, as it would only come more
/// often: then the group is left to end at once.
class CGroupAside
{
public:
    CGroupAside(CCopyGroup& group, CDeletionList& deletions) : m_group(group), m_deletions(deletions) {}
    ~CGroupAside(); ///< what a thread that was given up has not let go is left to the list
    CGroupAside(const CGroupAside&) = delete;
    CGroupAside& operator=(const CGroupAside&) = delete;

    // What the agent's time goes into.
    void Delivered(uint64_t ui64Micros);               ///< a mail took that long, with the ends of groups in between
    void Ended(uint32_t nCopies, uint64_t ui64Micros); ///< a group of so many was flushed at once

    bool IsWorthwhile() const;                ///< nothing is aside, and enough is stored
    void Begin();                             ///< hands over what the group holds
    bool IsBegun() const { return m_bBegun; } ///< and not settled yet
    bool HasEnded() { return m_job.HasEnded(); }

    struct SEnd
    {
        bool bFlushed = false;
        Platform::SError error;                             ///< of the flush
        Platform::SError unpromised;                        ///< of what is not promised in it
        bool bNewMail = false;                              ///< a name was met that stands for new mail
        std::vector<std::unique_ptr<CHeldMailFile>> failed; ///< the files whose copies may be lost
    };
    SEnd Settle(); ///< waits for what was begun; CAbandonment when the agent was given up

private:
    void Work();
    void SetFlush(uint64_t ui64Micros);
    void SetWhole(uint32_t nCopies); ///< that the agent has stored since the last time

    CCopyGroup& m_group;
    CDeletionList& m_deletions;
    bool m_bBegun = false;
    CCopyGroup::SPart m_part;
    CDeletionList::Entries m_files;
    SEnd m_end;
    uint64_t m_ui64FlushMicros = 0;  ///< that the last one took
    uint64_t m_ui64BeforeMicros = 0; ///< and the one before: a single slow one says nothing
    uint64_t m_ui64StoreMicros = 0;  ///< of the group that is being stored
    uint64_t m_ui64WholeMicros = 0;  ///< that the storing of a whole group takes, by the last one
    uint64_t m_ui64WaitedMicros = 0; ///< for ends during the mail in hand
    Bex::CSideJob m_job;
};
