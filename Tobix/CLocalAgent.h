#pragma once

#include "Bex/CList.h"
#include "Bex/CSimpleString.h"
#include "Bex/CThread.h"
#include "Tobix/CCopyGroup.h"
#include "Tobix/CDeletionList.h"
#include "Tobix/CFileNames.h"
#include "Tobix/CFreeSpace.h"
#include "Tobix/CGroupAside.h"
#include "Tobix/CInterceptor.h"
#include "Tobix/CMailRouter.h"
#include "Tobix/CWatchedDirectory.h"

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// The thread that empties the queue directory: each mail file in it is delivered and then deleted, or moved to the
/// error directory when it fails; a file that is busy stays and is taken up after the next change of the directory.
///
/// Owned by the service. Its settings are read once, by the constructor. Nothing of its state is on disk: after a
/// restart the first scan finds every file that is still there.
class CLocalAgent : public Bex::CThread
{
public:
    explicit CLocalAgent(std::shared_ptr<COutgoingFiles> pOutgoing = std::make_shared<COutgoingFiles>());
    ~CLocalAgent() override = default;

    CInterceptor& Interceptor() { return m_interceptor; }
    size_t Waiting() const
    {
        return m_nWaiting;
    } ///< queue files of the last look that are still to be done; any thread
    bool IsShortOfSpace() const { return m_space.WasShort(); } ///< mail waits for space on a volume; any thread

protected:
    void Body() override;

private:
    using EOutcome = CMailRouter::EOutcome;

    void WaitForWork() const;
    void RemoveUnfinishedFiles() const;
    void AdoptFailed();
    void ScanQueue();
    void ListQueue();
    void DeliverBatch();
    void DeliverFile(const Bex::CSimpleString& strName);
    void EndGroup();
    void EndGroupAside();
    void SettleAside();
    void FinishGroup();
    void FlushGroup();
    static void TellFlush(bool bFlushed, Platform::SError error, Platform::SError unpromised);
    void NotDurable(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile> pFile, Platform::SError error);
    void RemoveDelivered();
    bool ProcessQueueFile(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile>& pFile);
    EOutcome TryMail(const Bex::CSimpleString& strName, const Bex::CSimpleString& strPath,
                     std::unique_ptr<CHeldMailFile>& pFile);
    EOutcome DeliverMail(const Bex::CSimpleString& strName, const Bex::CSimpleString& strPath,
                         std::unique_ptr<CHeldMailFile>& pFile);
    bool HasToRest(const Bex::CSimpleString& strName) const;
    EOutcome KeepRest(const CMail& mail, const Bex::CSimpleString& strName);
    SSaveResult SaveRest(const CMail& rest, const Bex::CSimpleString& strDirectory,
                         const std::function<Bex::CSimpleString()>& NextName);
    enum class EWhy { Busy, TooShort, NoMemory, Unanswered, Held };
    EOutcome TryLater(const Bex::CSimpleString& strPath, EWhy why);
    EOutcome NotLoaded(const Bex::CSimpleString& strPath, const SLoadResult& loaded);
    void MoveToError(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile> pFile);
    Bex::CSimpleString QueuePath(std::string_view name) const;

    SMailDirectories m_directories;
    const int m_iMostReceived; ///< 0: any number
    CFreeSpace m_space;
    CWatchedDirectory m_queue;
    Bex::CList<Bex::CSimpleString> m_batch{false}; ///< bare names, found by the last scan and not yet taken
    std::atomic<size_t> m_nWaiting = 0;
    bool m_bBusyFiles = false; ///< met since the last wait
    struct SBusy
    {
        bool bLogged = false;
        uint64_t nWaitMillis = 0; ///< of one that is not tried each time
        uint64_t nNextTicks = 0;  ///< when it is tried again
        std::string strAccount{}; ///< for which it waits, or none
    };
    std::map<std::string, SBusy> m_busy; ///< names in the queue that wait for something
    CDeletionList m_deletions;
    CInterceptor m_interceptor;
    CMailRouter m_router;
    CFileNames m_names; ///< of the rests of mail
    CCopyGroup m_group;
    std::vector<CCopyGroup::SDelivered> m_delivered; ///< of the group being finished
    CGroupAside m_aside{m_group, m_deletions};
};
