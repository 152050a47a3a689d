#pragma once

#include "Bex/CReplacingFile.h"
#include "Bex/CSimpleString.h"
#include "Common/CHeldMailFile.h"
#include "Common/CMail.h"
#include "Platform/CFlushGroup.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

/// When a copy gets its final name. Where the file system orders data before names, always at once.
enum class ENaming {
    AtOnce,      ///< also elsewhere: a power cut may leave it cut, with the whole mail still in the queue
    Durable,     ///< at once as well, but flushed before
    WhenDurable, ///< with the flush of its group
};

/// Queue files that were delivered together with the copies made of them, up to the flush that makes the copies
/// durable: only then may the queue files go. Owned and used by the agent's thread.
///
/// One flush for many copies costs little more than one for a single copy. The limits keep small what a crash
/// between the flush and the deletions delivers twice; for the same reason a group ends before anything that waits, and
/// before one copy too many.
/// A part of it may be handed over to be flushed aside while more copies are stored; until its end is settled its
/// copies count among the group's.
class CCopyGroup
{
public:
    static constexpr uint32_t MOST_COPIES = 64;
    static constexpr uint64_t MOST_MILLIS = 1000;

    struct SDelivered
    {
        Bex::CSimpleString strName; ///< of the queue file, bare
        std::unique_ptr<CHeldMailFile> pFile;
    };

    /// End calls Finish and lets the queue files go. Withdraw is told of each name that no copy has got.
    CCopyGroup(std::function<void()> End, std::function<void(std::string_view)> Withdraw)
        : m_End(std::move(End)), m_Withdraw(std::move(Withdraw))
    {}

    void BeginMail();
    uint32_t CopiesOfMail() const { return m_nCopiesOfMail; } ///< that were promised
    /// By what copies of this mail may be lost, of which a flush has failed.
    const std::optional<Platform::SError>& LostCopies() const { return m_lostCopies; }

    /// Whether a mail with so many copies still fits.
    bool HasRoomFor(uint32_t nCopies) const { return m_nCopies + m_nCopiesAside + nCopies <= MOST_COPIES; }
    bool IsEmpty() const { return m_delivered.empty() && m_nCopies + m_nCopiesAside == 0; }
    void EndBeforeWaiting();
    void EndIfDue(); ///< when its first copy was written MOST_MILLIS ago

    /// Saves a copy as a new file of the directory, under the first of the names that nothing has yet. The path is
    /// that of the last name tried; with WhenDurable another one may take its place.
    SSaveResult SaveNew(const CMail& mail, EWriteMode mode, const Bex::CSimpleString& strDirectory, ENaming naming,
                        std::function<Bex::CSimpleString()> NextName, Bex::CSimpleString& strPath);
    /// Counts what SaveCopy writes into the directory, which has to be there, as a copy.
    SSaveResult SaveBy(const Bex::CSimpleString& strDirectory, const std::function<SSaveResult()>& SaveCopy);
    /// As SaveNew, under this very name; a file that has it is replaced. The copy is no part of the promise.
    SSaveResult SaveExtra(const CMail& mail, EWriteMode mode, const Bex::CSimpleString& strDirectory,
                          const Bex::CSimpleString& strName);
    void LetGo() { m_flush.Empty(); }                         ///< of the file systems, while there is nothing to write
    void MarkRemoved(const Bex::CSimpleString& strDirectory); ///< what went from there is flushed with the next group
    void AddDelivered(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile> pFile);

    /// Flushes the copies, names those that wait for it, and empties the group; false (Platform::LastError) when they
    /// may be lost. The failure of what is not promised is only told.
    bool Finish(std::vector<SDelivered>& delivered, Platform::SError& unpromised);

    /// How many copies could be flushed aside now; none while some wait for their names.
    uint32_t CopiesForAside() const { return m_unnamed.empty() ? m_nCopies : 0; }
    struct SPart
    {
        Platform::CFlushGroup::CPending flush;
        std::vector<SDelivered> delivered;
    };
    SPart HandOver(); ///< all that is there, while nothing else is aside
    /// The part that was handed over has ended. Where its flush has failed, what was written during that may be lost as
    /// well, and no other flush would tell: Finish fails, too, with that error.
    void SettleAside(bool bFlushed, Platform::SError error);

private:
    struct SUnnamed
    {
        std::unique_ptr<Bex::CReplacingFile> pFile; ///< null once it has a name
        Bex::CSimpleString strDirectory;
        Bex::CSimpleString strName; ///< the next to try
        std::function<Bex::CSimpleString()> NextName;
    };
    bool NameCopies();
    void DropUnnamed();
    template <class TSave>
    SSaveResult Write(const Bex::CSimpleString& strDirectory, bool bPromised, TSave SaveCopy);

    std::function<void()> m_End;
    std::function<void(std::string_view)> m_Withdraw;
    std::vector<SUnnamed> m_unnamed;
    Platform::CFlushGroup m_flush;
    std::vector<SDelivered> m_delivered;
    uint32_t m_nCopies = 0;
    uint32_t m_nCopiesAside = 0;
    std::optional<Platform::SError> m_failed; ///< of a flush aside, until the end of what was written during it
    uint64_t m_nBegunTicks = 0;               ///< when its first copy was written
    uint32_t m_nCopiesOfMail = 0;
    std::optional<Platform::SError> m_lostCopies;
};
