#include "Bex/CActivity.h"
#include "Bex/CCriticalSection.h"
#include "Bex/CInvalidParameterException.h"
#include "Bex/CInvalidStateException.h"
#include "Bex/CMutex.h"
#include "Bex/CSideJob.h"
#include "Bex/CThread.h"
#include "Platform/CInjectedFault.h"
#include "Platform/Clock.h"
#include "support/Becomes.h"
#include "support/CLogRecorder.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>

using namespace Bex;

namespace {

constexpr unsigned LONG = 30'000; // milliseconds; only a failing test waits for it

/// Shared by a test and its worker, which may outlast the test.
struct SWorld
{
    CEvent entered, release, destroyed;
    bool bPatient = true; ///< polls the stop event
};
using CWorldPtr = std::shared_ptr<SWorld>;

/// What the threads do, and who of them is stuck, so many milliseconds from now.
std::string Shown(uint64_t ui64Millis)
{
    std::string strShown;
    for (const CActivity::SState& state : CActivity::List(Platform::TickCount() + ui64Millis))
        strShown += state.strThread + ": " + state.strStep + (state.bStuck ? " (stuck)" : "") +
                    (state.bGivenUp ? " (given up)\n" : "\n");
    return strShown;
}

class ThreadTest : public testing::Test
{
protected:
    CLogRecorder m_log;
    const CWorldPtr m_pWorld = std::make_shared<SWorld>();
};

class CWorker : public CThread
{
public:
    explicit CWorker(CWorldPtr pWorld, bool bAutoDelete = false) : CThread(bAutoDelete), m_pWorld(std::move(pWorld)) {}
    ~CWorker() override { m_pWorld->destroyed.Set(); }
    unsigned m_nStopRequests = 0;

protected:
    void OnStopRequest() override { ++m_nStopRequests; }
    void Body() override
    {
        EXPECT_EQ(Id(), static_cast<unsigned>(gettid()));
        m_pWorld->entered.Set();
        if (m_pWorld->bPatient)
            WaitForAny({&StopEvent().Waitable(), &m_pWorld->release.Waitable()}, LONG);
        else
            m_pWorld->release.Wait(LONG);
    }
    CWorldPtr m_pWorld;
};

TEST_F(ThreadTest, StopsWhenAskedAndCanStartAgain)
{
    CWorker worker(m_pWorld);
    EXPECT_TRUE(worker.Stop()); // never ran: there is nothing to wait for
    for (unsigned nRound = 2; nRound <= 3; ++nRound) {
        ASSERT_TRUE(worker.Start());
        ASSERT_TRUE(m_pWorld->entered.Wait(LONG));
        m_pWorld->entered.Reset();
        EXPECT_FALSE(worker.Start());
        EXPECT_TRUE(worker.Stop());
        EXPECT_EQ(worker.Id(), 0U);
        EXPECT_EQ(worker.m_nStopRequests, nRound);
    }
    EXPECT_EQ(m_log.Take(), "3 m_hThread != NULL in Bex/CThread:101\n3 m_hThread != NULL in Bex/CThread:101\n");
}

TEST_F(ThreadTest, LetsGoOfItselfWhenItsBodyEnds)
{
    m_pWorld->release.Set();
    for (int i = 0; i < 50; ++i) {
        CWorker worker(m_pWorld);
        ASSERT_TRUE(worker.Start());
        ASSERT_TRUE(i % 2 == 0 || Becomes([&] { return worker.HasFinished(); }));
        EXPECT_TRUE(worker.Stop());
        EXPECT_EQ(worker.Id(), 0U);
    }
}

TEST_F(ThreadTest, AnAbandonedThreadDestroysItsObjectWhenItEnds)
{
    m_pWorld->bPatient = false;
    auto pWorker = std::make_unique<CWorker>(m_pWorld);
    ASSERT_TRUE(pWorker->Start());
    ASSERT_TRUE(m_pWorld->entered.Wait(LONG));
    EXPECT_FALSE(pWorker->Stop());
    EXPECT_TRUE(pWorker->Terminate());
    EXPECT_TRUE(pWorker->HasFinished());
    EXPECT_EQ(Shown(3 * CActivity::PATIENCE), "worker: waits (given up)\n");
    EXPECT_EQ(pWorker->Id(), 0U);
    EXPECT_FALSE(pWorker->Start());
    EXPECT_TRUE(CThread::AnyAbandoned());
    CThread::Destroy(std::move(pWorker));
    EXPECT_FALSE(m_pWorld->destroyed.IsSet());
    m_pWorld->release.Set();
    EXPECT_TRUE(m_pWorld->destroyed.Wait(LONG));
    EXPECT_TRUE(Becomes([] { return !CThread::AnyAbandoned(); }));
    EXPECT_EQ(m_log.Take(),
              "3 Wait timed out in Bex/CThread:151\n3 TerminateThread failed in Bex/CThread:205 with error "
              "50\n3 m_dwThreadID != 0 in Bex/CThread:106\n");
}

TEST_F(ThreadTest, ASideJobIsGivenUpWithItsWorker)
{
    struct CBeside : CWorker
    {
        using CWorker::CWorker;
        void Body() override
        {
            CSideJob job;
            EXPECT_TRUE(job.Begin([this] {
                m_pWorld->entered.Set();
                m_pWorld->release.Wait(LONG);
                EndIfAbandoned();
                ADD_FAILURE();
            }));
            job.Wait();
            ADD_FAILURE() << "a thread that was given up goes on";
        }
    };
    m_pWorld->bPatient = false;
    std::unique_ptr<CThread> pWorker = std::make_unique<CBeside>(m_pWorld);
    ASSERT_TRUE(pWorker->Start() && m_pWorld->entered.Wait(LONG) && pWorker->Terminate());
    CThread::Destroy(std::move(pWorker));
    m_pWorld->release.Set();
    EXPECT_TRUE(m_pWorld->destroyed.Wait(LONG));
}

TEST_F(ThreadTest, ALateEndAfterAStopIsCleanedUp)
{
    m_pWorld->bPatient = false;
    auto pWorker = std::make_unique<CWorker>(m_pWorld);
    ASSERT_TRUE(pWorker->Start());
    EXPECT_FALSE(pWorker->Stop());
    m_pWorld->release.Set();
    ASSERT_TRUE(Becomes([&] { return pWorker->HasFinished(); }));
    EXPECT_NE(pWorker->Id(), 0U); // still told in the "stopped" line
    CThread::Destroy(std::move(pWorker));
    EXPECT_TRUE(m_pWorld->destroyed.IsSet());
    EXPECT_FALSE(CThread::AnyAbandoned());
}

TEST_F(ThreadTest, AutoDeleteDestroysAnEndedOrUnstartedWorker)
{
    m_pWorld->release.Set();
    ASSERT_TRUE(std::make_unique<CWorker>(m_pWorld, true).release()->Start());
    EXPECT_TRUE(m_pWorld->destroyed.Wait(LONG));
    m_pWorld->destroyed.Reset();
    const Platform::CInjectedFault fault(Platform::EFault::CreateThread, 1, EAGAIN);
    EXPECT_FALSE(std::make_unique<CWorker>(m_pWorld, true).release()->Start());
    EXPECT_TRUE(m_pWorld->destroyed.IsSet());
    EXPECT_EQ(m_log.Take(), "3 _beginthreadex failed in Bex/CThread:118 with error 1450\n");
}

TEST(ActivityTest, AThreadIsStuckWhenItIsSilentForLongerThanItsStepMayTake)
{
    constexpr uint64_t SILENT = CActivity::PATIENCE + 1000;
    const CActivity::CStep unseen("of a thread without activity");
    const CActivity activity("agent");
    EXPECT_EQ(Shown(0), "agent: waits\n");
    {
        const CActivity::CStep step("delivers %s", "a\nb.eml");
        EXPECT_EQ(Shown(CActivity::PATIENCE), "agent: delivers a?b.eml\n");
        EXPECT_EQ(Shown(SILENT), "agent: delivers a?b.eml (stuck)\n");
        CActivity::MayTake(5000);
        const CActivity::CStep inner("%s", std::string(300, 'x').c_str());
        CActivity::Alive(); // takes nothing from what the outer one was granted
        EXPECT_EQ(Shown(SILENT + 3000), "agent: " + std::string(255, 'x') + "\n");
        EXPECT_EQ(Shown(SILENT + 5000), "agent: " + std::string(255, 'x') + " (stuck)\n");
    }
    EXPECT_EQ(Shown(SILENT), "agent: waits (stuck)\n");
    CActivity::Waits(Platform::INFINITE);
    EXPECT_EQ(Shown(1000 * SILENT), "agent: waits\n");
}

TEST(LockTest, ACriticalSectionIsRecursiveAndTimesOutForOthers)
{
    CCriticalSection section;
    ASSERT_TRUE(section.Lock() && section.Lock(0));
    std::thread([&] {
        const uint64_t ui64Start = Platform::TickCount();
        EXPECT_FALSE(section.Lock(50));
        EXPECT_GE(Platform::TickCount() - ui64Start, 50U);
    }).join();
    section.Unlock();
    section.Unlock();
    std::thread([&] { EXPECT_TRUE(section.Lock(LONG) && section.Unlock()); }).join();
}

TEST(LockTest, AMutexIsSharedByNameAndAnAbandonedOneIsAcquired)
{
    const CSimpleString strName(CSimpleString::Formatted("bex-test-%d", getpid()));
    CMutex mutex(strName), other(strName), none;
    ASSERT_TRUE(mutex.Lock());
    std::thread([&] { EXPECT_FALSE(other.Lock(0)); }).join();
    EXPECT_TRUE(mutex.Unlock());
    std::thread([&] { EXPECT_TRUE(other.Lock(LONG)); }).join();
    EXPECT_TRUE(mutex.Lock(LONG));
    EXPECT_THROW(none.Lock(0), CInvalidStateException);
    EXPECT_THROW(none.Unlock(), CInvalidStateException);
    EXPECT_THROW(CMutex(CSimpleString(std::string(261, 'x'))), CInvalidParameterException);
    const CLogRecorder log;
    CMutex nowhere("x", "/nowhere");
    for (int n = 0; n < 3; ++n)
        EXPECT_TRUE(!nowhere.Lock(0) && mutex.Lock(0) && mutex.Unlock());
    EXPECT_EQ(log.Lines().size(), 1u); // of each place once
}

} // namespace
