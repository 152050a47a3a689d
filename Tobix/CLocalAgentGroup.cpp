// How CLocalAgent ends a group of copies: they are on stable storage before the queue files that they were made from
// go.

#include "Tobix/CLocalAgent.h"

#include "Bex/CActivity.h"
#include "Bex/CLogContext.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Platform/Clock.h"

#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/LocalAgent";

} // namespace

/// Of all that is stored, at once.
void CLocalAgent::EndGroup()
{
    FinishGroup();
    RemoveDelivered();
}

/// Of what is stored so far, while the next mail is delivered.
void CLocalAgent::EndGroupAside()
{
    if (m_aside.IsBegun() && m_aside.HasEnded())
        SettleAside();
    if (m_aside.IsWorthwhile())
        m_aside.Begin();
}

/// What was stored during a flush that failed may be lost, too.
void CLocalAgent::SettleAside()
{
    if (!m_aside.IsBegun())
        return;
    const Bex::CActivity::CStep step("makes copies durable");
    Bex::CActivity::MayTake(Bex::CActivity::WITHOUT_END); // as long as the disks do
    const Bex::CLogContext noMail({});
    CGroupAside::SEnd end = m_aside.Settle();
    m_group.MarkRemoved(m_directories.strQueue);
    if (end.bNewMail)
        m_queue.AskAgain();
    TellFlush(end.bFlushed, end.error, end.unpromised);
    for (std::unique_ptr<CHeldMailFile>& pFile : end.failed) {
        const Bex::CSimpleString strName(Bex::NameOf(pFile->Name().View()));
        NotDurable(strName, std::move(pFile), end.error);
    }
    if (!end.bFlushed)
        EndGroup();
}

void CLocalAgent::FinishGroup()
{
    SettleAside();
    if (!m_group.IsEmpty())
        FlushGroup();
}

void CLocalAgent::FlushGroup()
{
    const Bex::CActivity::CStep step("makes copies durable");
    Bex::CActivity::MayTake(Bex::CActivity::WITHOUT_END); // as long as the disks do
    const Bex::CLogContext noMail({});
    const uint64_t nStarted = Platform::TickMicros();
    const uint32_t nCopies = m_group.CopiesForAside();
    Platform::SError unpromised;
    const bool bFlushed = m_group.Finish(m_delivered, unpromised);
    const Platform::SError error = Platform::LastError();
    m_aside.Ended(nCopies, Platform::TickMicros() - nStarted);
    TellFlush(bFlushed, error, unpromised);
    for (CCopyGroup::SDelivered& file : m_delivered) {
        if (bFlushed)
            m_deletions.Add(std::move(file.pFile));
        else
            NotDurable(file.strName, std::move(file.pFile), error);
    }
    m_delivered.clear();
}

/// What may pass, such as a cluster that is away, has the mail delivered again, as a crash does.
void CLocalAgent::NotDurable(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile> pFile,
                             Platform::SError error)
{
    if (Platform::IsBusy(error))
        TryLater(QueuePath(strName), EWhy::Busy);
    else
        MoveToError(strName, std::move(pFile));
}

void CLocalAgent::TellFlush(bool bFlushed, Platform::SError error, Platform::SError unpromised)
{
    if (unpromised.iLibError != Platform::LIB_NONE)
        Bex::LogError(Bex::MainLog(), "flushing intercepted or removed mail failed (SysError=%d, LibError=%d) at %s:%d",
                      static_cast<int>(unpromised.dwSysError), unpromised.iLibError, SOURCE_FILE, __LINE__);
    if (!bFlushed)
        Bex::LogError(Bex::MainLog(), "flushing delivered mail failed (SysError=%d, LibError=%d) at %s:%d",
                      static_cast<int>(error.dwSysError), error.iLibError, SOURCE_FILE, __LINE__);
}

void CLocalAgent::RemoveDelivered()
{
    if (m_deletions.IsEmpty())
        return;
    const Bex::CActivity::CStep step("removes what was delivered");
    m_group.MarkRemoved(m_directories.strQueue);
    if (m_deletions.RemoveDelivered())
        m_queue.AskAgain();
}
