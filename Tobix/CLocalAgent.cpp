#include "Tobix/CLocalAgent.h"

#include "Bex/CException.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Platform/Clock.h"
#include "Platform/FileIdentity.h"
#include "Tobix/MailLog.h"
#include "Tobix/ServicePause.h"
#include "Tobix/StaleFiles.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/LocalAgent";
constexpr Bex::FrozenLine NOT_LOADED_LINE = 168;
constexpr unsigned IDLE_MILLIS = 1000;
constexpr unsigned AFTER_FAILED_MOVE_MILLIS = 1000;
constexpr uint64_t LEAST_REST_MILLIS = 1000;
constexpr uint64_t MOST_REST_MILLIS = 600'000;

Bex::CSimpleString InterceptListFile()
{
    return Bex::JoinPath(ConfigDirectory(), Config().GetPath(Keys::INTERCEPT_ADDRESSES_FILE));
}

} // namespace

CLocalAgent::CLocalAgent(std::shared_ptr<COutgoingFiles> pOutgoing)
    : m_directories(SMailDirectories::FromConfiguration()), m_queue(m_directories.strQueue),
      m_interceptor(InterceptListFile(), m_directories.strIntercept),
      m_router(m_directories, m_interceptor, std::move(pOutgoing), StopEvent().Waitable(), [this] {
          FinishGroup();
          RemoveDelivered();
      })
{}

void CLocalAgent::Body()
{
    Bex::LogNotice(Bex::MainLog(), "local delivery agent (id %04X) started", Id());
    RemoveUnfinishedFiles();
    while (ShallRun()) {
        WaitWhileServiceIsPaused(StopEvent());
        ScanQueue();
        DeliverBatch();
        RemoveDelivered();
        if (m_batch.IsEmpty() && ShallRun())
            WaitForWork();
        if (std::exchange(m_bBusyFiles, false))
            m_queue.AskAgain();
    }
    Bex::LogNotice(Bex::MainLog(), "local delivery agent (id %04X) stopped", Id());
}

void CLocalAgent::WaitForWork() const
{
    if (!m_queue.HasToBeAskedAgain())
        Bex::WaitForAny({&StopEvent().Waitable(), &m_queue.Waitable()}, IDLE_MILLIS);
}

void CLocalAgent::RemoveUnfinishedFiles() const
{
    RemoveStaleFiles(m_directories.strOutgoing);
    RemoveStaleFiles(m_directories.strFilter);
}

void CLocalAgent::ScanQueue()
{
    m_batch.RemoveAll();
    if (!m_queue.MayHaveChanged())
        return;
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
}

/// A pause leaves the rest for another listing, which finds what became of it meanwhile.
void CLocalAgent::DeliverBatch()
{
    Bex::CSimpleString strName;
    while (ShallRun() && !ServiceIsPaused() && m_batch.PopFirst(strName)) {
        if (!m_deletions.Contains(QueuePath(strName)))
            DeliverFile(strName);
    }
    if (!m_batch.IsEmpty())
        m_queue.AskAgain();
    FinishGroup();
}

void CLocalAgent::DeliverFile(const Bex::CSimpleString& strName)
{
    if (HasToRest(strName)) {
        m_bBusyFiles = true;
        return;
    }
    auto pFile = std::make_unique<CHeldMailFile>();
    if (!ProcessQueueFile(strName, pFile))
        MoveToError(strName, std::move(pFile));
}

bool CLocalAgent::HasToRest(const Bex::CSimpleString& strName) const
{
    const auto busy = m_busy.find(strName.Text());
    return busy != m_busy.end() && Platform::TickCount() < busy->second.nNextTicks;
}

/// A file that cannot be moved is not delivered again. The first one is waited for; the others must not hold up the
/// mail of everybody else.
void CLocalAgent::MoveToError(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile> pFile)
{
    Bex::LogError(Bex::MainLog(), "delivering mail '%s' failed, placing in error", strName.Text());
    const bool bOthersWait = m_deletions.HasKept();
    m_deletions.Add(std::move(pFile), Bex::PathBelow(m_directories.strError, strName));
    RemoveDelivered();
    if (!bOthersWait && m_deletions.Contains(QueuePath(strName)))
        StopEvent().Wait(AFTER_FAILED_MOVE_MILLIS);
}

/// The copies are on stable storage before the queue files they were made from may go.
void CLocalAgent::FinishGroup()
{
    if (m_group.IsEmpty())
        return;
    const bool bFlushed = m_group.Finish(m_delivered);
    if (!bFlushed) {
        const Platform::SError error = Platform::LastError();
        Bex::LogError(Bex::MainLog(), "flushing delivered mail failed (SysError=%d, LibError=%d) at %s:%d",
                      static_cast<int>(error.dwSysError), error.iLibError, SOURCE_FILE, __LINE__);
    }
    for (CCopyGroup::SDelivered& file : m_delivered) {
        if (bFlushed)
            m_deletions.Add(std::move(file.pFile));
        else
            MoveToError(file.strName, std::move(file.pFile));
    }
    m_delivered.clear();
}

void CLocalAgent::RemoveDelivered()
{
    if (m_deletions.RemoveDelivered())
        m_queue.AskAgain();
}

/// True when the file was handled or is to be tried again later; whatever a library exception means for the mail,
/// the agent goes on with the next one.
bool CLocalAgent::ProcessQueueFile(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile>& pFile)
{
    const Bex::CSimpleString strPath = QueuePath(strName);
    try {
        return DeliverMail(strName, strPath, pFile) != EOutcome::Failed;
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
    } catch (const Bex::CException& exception) {
        MailLog::DeliveryRaised(strPath, exception);
    } catch (const std::exception& exception) {
        MailLog::DeliveryRaised(strPath, exception);
    }
    return false;
}

CLocalAgent::EOutcome CLocalAgent::DeliverMail(const Bex::CSimpleString& strName, const Bex::CSimpleString& strPath,
                                               std::unique_ptr<CHeldMailFile>& pFile)
{
    CMail mail;
    if (const SLoadResult loaded = mail.Load(strPath, *pFile); !loaded)
        return NotLoaded(strPath, loaded);
    if (mail.Recipients().IsEmpty()) {
        Bex::LogError(Bex::MainLog(), "no receivers found in mail");
        return EOutcome::Failed;
    }
    if (!m_group.HasRoomFor(mail.Recipients().Count())) {
        FinishGroup();
        RemoveDelivered();
    }
    const EOutcome outcome = m_router.Route(mail, m_group);
    if (outcome == EOutcome::Delivered)
        m_group.AddDelivered(strName, std::move(pFile));
    return outcome;
}

/// A name that went after it was listed is nobody's failure. A busy file is looked at again before long: neither the
/// end of its stillness nor a reader of another process that dies, nor the end of a shortage changes the directory.
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
    const auto [busy, bNew] = m_busy.try_emplace(std::string(strPath.View().substr(strPath.View().rfind('/') + 1)));
    if (bNew)
        MailLog::Busy(strPath);
    // To read it in vain takes long, and each time a line in the log.
    if (SBusy& state = busy->second; loaded.error.iLibError == Platform::LIB_NO_MEMORY) {
        state.nWaitMillis = std::clamp(2 * state.nWaitMillis, LEAST_REST_MILLIS, MOST_REST_MILLIS);
        state.nNextTicks = Platform::TickCount() + state.nWaitMillis;
    }
    m_bBusyFiles = true;
    return EOutcome::Retry;
}

Bex::CSimpleString CLocalAgent::QueuePath(std::string_view name) const
{
    return Bex::PathBelow(m_directories.strQueue, name);
}
