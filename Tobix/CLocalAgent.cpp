#include "Tobix/CLocalAgent.h"

#include "Bex/CActivity.h"
#include "Bex/CException.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/CLogContext.h"
#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Common/Statistics.h"
#include "Platform/Clock.h"
#include "Platform/FileIdentity.h"
#include "Tobix/MailLog.h"
#include "Tobix/ServicePause.h"
#include "Tobix/StaleFiles.h"
#include "Tobix/TableFiles.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/LocalAgent";
constexpr Bex::FrozenLine NOT_LOADED_LINE = 168;
constexpr int64_t INJECTION_SECONDS = 86'400; ///< none takes so long
constexpr unsigned IDLE_MILLIS = 1000;
constexpr unsigned AFTER_FAILED_MOVE_MILLIS = 1000;
constexpr uint64_t LEAST_REST_MILLIS = 1000;
constexpr uint64_t MOST_REST_MILLIS = 600'000;

} // namespace

CLocalAgent::CLocalAgent(std::shared_ptr<COutgoingFiles> pOutgoing)
    : m_directories(SMailDirectories::FromConfiguration()), m_iMostReceived(Config().GetInt(Keys::HEADER_RECEIVED_MAX)),
      m_space(Config().GetInt(Keys::QUEUE_MIN_FREE), {Config().GetPath(Keys::SPOOL_DIR), m_directories.strOutgoing}),
      m_queue(m_directories.strQueue, CWatchedDirectory::MAIL_ENDING),
      m_interceptor(TableFiles::InterceptAddresses(), m_directories.strIntercept),
      m_router(m_directories, m_interceptor, pOutgoing, StopEvent().Waitable()),
      m_group([this] { EndGroup(); },
              [pNames = std::move(pOutgoing)](std::string_view name) { pNames->Withdraw(name); })
{}

void CLocalAgent::Body()
{
    Bex::LogNotice(Bex::MainLog(), "local delivery agent (id %04X) started", Id());
    RemoveUnfinishedFiles();
    AdoptFailed();
    while (ShallRun()) {
        WaitWhileServiceIsPaused(StopEvent());
        ScanQueue();
        DeliverBatch();
        RemoveDelivered();
        if (m_batch.IsEmpty() && ShallRun())
            WaitForWork();
        else if (m_space.WasShort())
            StopEvent().Wait(IDLE_MILLIS);
        if (std::exchange(m_bBusyFiles, false))
            m_queue.AskAgain();
    }
    m_deletions.SetFailedAside();
    Bex::LogNotice(Bex::MainLog(), "local delivery agent (id %04X) stopped", Id());
}

void CLocalAgent::WaitForWork() const
{
    if (!m_queue.HasToBeAskedAgain())
        Bex::WaitForAny({&StopEvent().Waitable(), &m_queue.Waitable()}, IDLE_MILLIS);
}

/// In the queue only what tobix-inject left on a file system without files that have no name: the temporary files of
/// other programs may be complete, and about to get theirs.
void CLocalAgent::RemoveUnfinishedFiles() const
{
    const Bex::CActivity::CStep step("removes unfinished files");
    RemoveOldFiles(m_directories.strQueue, INJECTION_SECONDS, ".i_*.eml.tmp");
    RemoveStaleFiles(m_directories.strOutgoing);
    RemoveStaleFiles(m_directories.strFilter);
    RemoveStaleFiles(m_directories.strError);
    RemoveStaleFilesBelow(m_directories.strIntercept);
}

void CLocalAgent::AdoptFailed()
{
    try {
        m_deletions.AdoptFailed(m_directories.strQueue, m_directories.strError);
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
    }
}

void CLocalAgent::ScanQueue()
{
    m_batch.RemoveAll();
    m_deletions.Adopt(m_directories.strError);
    if (!m_queue.MayHaveChanged())
        return;
    const Bex::CActivity::CStep step("lists the queue");
    try {
        ListQueue();
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
        m_queue.AskAgain(); // the notification is used up
        StopEvent().Wait(IDLE_MILLIS);
    }
}

/// A queue directory that is missing lists like an empty one: it may come back.
void CLocalAgent::ListQueue()
{
    Bex::CFileFind find;
    if (!find.Open(Bex::JoinPath(m_queue.Path(), "*.eml")))
        return;
    std::map<std::string, SBusy> busy;
    while (find.Next()) {
        if (auto told = m_busy.extract(find.Name()))
            busy.insert(std::move(told));
        if (find.IsDirectory() || static_cast<uint32_t>(find.Size()) == 0)
            continue;
        if (!m_deletions.Contains(QueuePath(find.Name())))
            m_batch.Append(find.Name());
    }
    m_busy.swap(busy);
    m_nWaiting = m_batch.Count();
}

/// A pause, or a lack of space, leaves the rest for another listing, which finds what became of it meanwhile.
void CLocalAgent::DeliverBatch()
{
    Bex::CSimpleString strName;
    while (ShallRun() && !ServiceIsPaused() && !m_space.IsShort() && m_batch.PopFirst(strName)) {
        const uint64_t nStarted = Platform::TickMicros();
        if (!m_deletions.Contains(QueuePath(strName)))
            DeliverFile(strName);
        if (!m_busy.contains(strName.Text()))
            --m_nWaiting;
        m_group.EndIfDue();
        m_aside.Delivered(Platform::TickMicros() - nStarted);
        EndGroupAside();
    }
    if (!m_batch.IsEmpty())
        m_queue.AskAgain();
    FinishGroup();
    m_group.LetGo();
}

void CLocalAgent::DeliverFile(const Bex::CSimpleString& strName)
{
    if (HasToRest(strName)) {
        m_bBusyFiles = true;
        return;
    }
    const Bex::CActivity::CStep step("delivers %s", strName.Text());
    const Bex::CLogContext context(strName);
    auto pFile = std::make_unique<CHeldMailFile>();
    if (ProcessQueueFile(strName, pFile))
        return;
    if (m_group.CopiesOfMail() > 0)
        EndGroup(); // who has a copy is not served from the error directory
    MoveToError(strName, std::move(pFile));
}

bool CLocalAgent::HasToRest(const Bex::CSimpleString& strName) const
{
    const auto busy = m_busy.find(strName.Text());
    return busy != m_busy.end() &&
           (Platform::TickCount() < busy->second.nNextTicks || m_router.IsHeld(busy->second.strAccount));
}

/// A file that cannot be moved is not delivered again. The first one is waited for; the others must not hold up the
/// mail of everybody else.
void CLocalAgent::MoveToError(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile> pFile)
{
    const Bex::CLogContext context(strName);
    MailLog::PlacedInError(strName);
    const bool bOthersWait = m_deletions.HasKept();
    m_deletions.Add(std::move(pFile), Bex::PathBelow(m_directories.strError, strName));
    RemoveDelivered();
    if (!bOthersWait && m_deletions.Contains(QueuePath(strName)))
        StopEvent().Wait(AFTER_FAILED_MOVE_MILLIS);
}

/// True when the file was handled or is to be tried again later; whatever a library exception means for the mail,
/// the agent goes on with the next one.
bool CLocalAgent::ProcessQueueFile(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile>& pFile)
{
    const Bex::CSimpleString strPath = QueuePath(strName);
    try {
        return TryMail(strName, strPath, pFile) != EOutcome::Failed;
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
    } catch (const Bex::CException& exception) {
        MailLog::DeliveryRaised(strPath, exception);
    } catch (const std::exception& exception) {
        MailLog::DeliveryRaised(strPath, exception);
    }
    return false;
}

/// A shortage before the first copy leaves everything as it is.
CLocalAgent::EOutcome CLocalAgent::TryMail(const Bex::CSimpleString& strName, const Bex::CSimpleString& strPath,
                                           std::unique_ptr<CHeldMailFile>& pFile)
{
    m_group.BeginMail();
    try {
        return DeliverMail(strName, strPath, pFile);
    } catch (...) {
        if (m_group.CopiesOfMail() > 0 || !Bex::IsHandledExceptionBusy())
            throw;
        return TryLater(strPath, EWhy::Busy);
    }
}

CLocalAgent::EOutcome CLocalAgent::DeliverMail(const Bex::CSimpleString& strName, const Bex::CSimpleString& strPath,
                                               std::unique_ptr<CHeldMailFile>& pFile)
{
    const uint64_t nStarted = Platform::TickMicros();
    CMail mail;
    if (const SLoadResult loaded = mail.Load(strPath, *pFile, [this] { m_group.EndBeforeWaiting(); }); !loaded)
        return NotLoaded(strPath, loaded);
    const Bex::CLogContext context({}, mail.MessageID(), mail.EnvelopeSender());
    if (mail.Recipients().IsEmpty()) {
        Bex::LogError(Bex::MainLog(), "no receivers found in mail");
        return EOutcome::Failed;
    }
    if (m_iMostReceived > 0 && mail.Received().Count() > static_cast<uint32_t>(m_iMostReceived)) {
        MailLog::GoesRound(mail, m_iMostReceived);
        Statistics::Count(Statistics::ECount::LoopsEnded);
        return EOutcome::Failed;
    }
    if (!m_group.HasRoomFor(mail.Recipients().Count()))
        SettleAside();
    if (!m_group.HasRoomFor(mail.Recipients().Count()))
        EndGroup();
    EOutcome outcome = m_router.Route(mail, m_group);
    const bool bInterrupted = outcome == EOutcome::Interrupted;
    if (bInterrupted && !m_group.LostCopies())
        outcome = KeepRest(mail, strName);
    if (const std::optional<Platform::SError>& lost = m_group.LostCopies())
        return Platform::IsBusy(*lost) ? TryLater(strPath, EWhy::Busy) : EOutcome::Failed;
    if (outcome == EOutcome::Delivered)
        m_group.AddDelivered(strName, std::move(pFile));
    if (outcome == EOutcome::Delivered) {
        Statistics::Count(Statistics::ECount::LocalMails);
        Statistics::Took(Statistics::EDuration::LocalMail, Platform::TickMicros() - nStarted);
    }
    if (bInterrupted)
        EndGroup();
    if (outcome == EOutcome::Unanswered)
        return TryLater(strPath, EWhy::Unanswered);
    if (outcome == EOutcome::Held)
        return TryLater(strPath, EWhy::Held);
    return outcome == EOutcome::Retry ? TryLater(strPath, EWhy::Busy) : outcome;
}

/// What ends the stillness of a file, a reader in another process or a shortage does not change the directory: it is
/// looked at again without. A file that is too short for a mail waits for whoever writes on it.
CLocalAgent::EOutcome CLocalAgent::TryLater(const Bex::CSimpleString& strPath, EWhy why)
{
    m_bBusyFiles |= why != EWhy::TooShort;
    if (!ShallRun())
        return EOutcome::Retry;
    SBusy& busy = m_busy[std::string(Bex::NameOf(strPath.View()))];
    if (why != EWhy::Unanswered && !std::exchange(busy.bLogged, true))
        MailLog::Busy(strPath, why == EWhy::NoMemory);
    busy.strAccount = why == EWhy::Held ? m_router.HeldAccount() : "";
    if (why == EWhy::NoMemory || why == EWhy::Unanswered) { // what takes long in vain
        busy.nWaitMillis = std::clamp(2 * busy.nWaitMillis, LEAST_REST_MILLIS, MOST_REST_MILLIS);
        busy.nNextTicks = Platform::TickCount() + busy.nWaitMillis;
    }
    return EOutcome::Retry;
}

/// A name that went after it was listed is nobody's failure.
CLocalAgent::EOutcome CLocalAgent::NotLoaded(const Bex::CSimpleString& strPath, const SLoadResult& loaded)
{
    if (loaded.result == ELoadResult::Broken) {
        Platform::SFileIdentity identity;
        if (!Platform::IdentityOf(strPath.Text(), identity) &&
            Platform::LastError().iLibError == Platform::LIB_NO_ENTRY)
            return EOutcome::Retry;
        Bex::LogError(Bex::MainLog(), "error in %s:%d, errno=%d file=\"%s\"\n", SOURCE_FILE, NOT_LOADED_LINE,
                      loaded.error.iLibError, strPath.Text());
        return EOutcome::Failed;
    }
    if (loaded.error.iLibError == Platform::LIB_NONE)
        return TryLater(strPath, EWhy::TooShort);
    return TryLater(strPath, loaded.error.iLibError == Platform::LIB_NO_MEMORY ? EWhy::NoMemory : EWhy::Busy);
}

Bex::CSimpleString CLocalAgent::QueuePath(std::string_view name) const
{
    return Bex::PathBelow(m_directories.strQueue, name);
}
