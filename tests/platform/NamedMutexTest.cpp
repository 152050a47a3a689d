#include "Platform/CCallWatcher.h"
#include "Platform/CEventHandle.h"
#include "Platform/CInjectedFault.h"
#include "Platform/CNamedMutex.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"
#include "Platform/linux/thread/CNameLockFile.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

using namespace Platform;

namespace {

std::string NameOf(const char* pszTest) { return "test-" + std::to_string(getpid()) + "-" + pszTest; }

ELockResult LockElsewhere(const std::string& strName)
{
    return std::async(std::launch::async, [&] { return CNamedMutex(strName).Lock(0); }).get();
}

/// Another process: runs the body and stays, stopped, when that is true.
class CChild
{
public:
    explicit CChild(const std::function<bool()>& body) : m_iProcess(fork())
    {
        if (m_iProcess == 0)
            _exit(body() && raise(SIGSTOP) == 0 ? 0 : 1);
        siginfo_t change{};
        waitid(P_PID, static_cast<id_t>(m_iProcess), &change, WSTOPPED | WEXITED | WNOWAIT);
        m_bResult = change.si_code == CLD_STOPPED;
    }
    ~CChild()
    {
        kill(m_iProcess, SIGKILL);
        waitpid(m_iProcess, nullptr, 0);
    }
    bool Result() const { return m_bResult; }

private:
    pid_t m_iProcess;
    bool m_bResult;
};

TEST(NamedMutexTest, ExcludesThreads)
{
    int nInside = 0;
    std::vector<std::jthread> threads;
    for (int iThread = 0; iThread < 6; ++iThread) {
        threads.emplace_back([&] {
            for (int iRound = 0; iRound < 300; ++iRound) {
                CNamedMutex mutex(NameOf("threads"));
                ASSERT_EQ(mutex.Lock(INFINITE), ELockResult::Acquired);
                EXPECT_EQ(++nInside, 1);
                --nInside;
                mutex.Unlock();
            }
        });
    }
}

TEST(NamedMutexTest, ExcludesProcessesAndIsLetGoWhenOneIsKilled)
{
    CNamedMutex mutex(NameOf("processes"));
    auto pHolder = std::make_unique<CChild>([&] { return mutex.Lock(0) == ELockResult::Acquired; });
    ASSERT_TRUE(pHolder->Result());
    EXPECT_EQ(mutex.Lock(0), ELockResult::TimedOut);
    const uint64_t ui64Started = TickCount();
    EXPECT_EQ(mutex.Lock(60), ELockResult::TimedOut);
    EXPECT_GE(TickCount() - ui64Started, 60u);
    EXPECT_EQ(LastError().dwSysError, SYS_TIMEOUT);

    std::thread killer([&] {
        SleepMillis(30);
        pHolder.reset();
    });
    EXPECT_EQ(mutex.Lock(10'000), ELockResult::Acquired);
    killer.join();
}

TEST(NamedMutexTest, ForkedChildHoldsNothingOfItsParent)
{
    CNamedMutex mutex(NameOf("fork"));
    ASSERT_EQ(mutex.Lock(0), ELockResult::Acquired);
    const auto childUnlocks = [&] {
        mutex.Unlock(); // not its own
        return mutex.Lock(0) == ELockResult::TimedOut;
    };
    for (int n = 0; n < 2; ++n)
        EXPECT_TRUE(CChild(childUnlocks).Result());
    mutex.Unlock();
    EXPECT_TRUE(CChild([&] { return mutex.Lock(0) == ELockResult::Acquired; }).Result());
}

TEST(NamedMutexTest, IsRecursiveForItsThreadAcrossObjects)
{
    const std::string strName = NameOf("recursion");
    CNamedMutex first(strName);
    ASSERT_EQ(first.Lock(0), ELockResult::Acquired);
    ASSERT_EQ(first.Lock(0), ELockResult::Acquired);
    {
        CNamedMutex second(strName);
        second.Unlock(); // holds nothing yet
        ASSERT_EQ(second.Lock(0), ELockResult::Acquired);
        for (int n = 0; n < 3; ++n) // once too often
            first.Unlock();
        EXPECT_EQ(LockElsewhere(strName), ELockResult::TimedOut);
    }
    EXPECT_EQ(LockElsewhere(strName), ELockResult::Acquired);
}

TEST(NamedMutexTest, OnlyTheOwningThreadUnlocks)
{
    CNamedMutex mutex(NameOf("owner"));
    ASSERT_EQ(mutex.Lock(0), ELockResult::Acquired);
    std::thread([&] { mutex.Unlock(); }).join();
    EXPECT_EQ(LockElsewhere(NameOf("owner")), ELockResult::TimedOut);
}

TEST(NamedMutexTest, ThreadThatEndsAbandonsWhatItOwns)
{
    CNamedMutex mutex(NameOf("abandoned"));
    std::thread([&] { EXPECT_EQ(mutex.Lock(0), ELockResult::Acquired); }).join();
    EXPECT_EQ(mutex.Lock(0), ELockResult::Abandoned);
    mutex.Unlock();
    EXPECT_EQ(mutex.Lock(0), ELockResult::Acquired);

    auto waiter = std::async(std::launch::async, [&] { return mutex.Lock(10'000); });
    SleepMillis(20);
    mutex.Unlock();
    EXPECT_EQ(waiter.get(), ELockResult::Acquired);
    EXPECT_EQ(mutex.Lock(0), ELockResult::Abandoned);
}

TEST(NameLockFileTest, RefusesWhatSomebodyElseMayHavePrepared)
{
    for (const char* pszPrepare : {"true", "mkdir -m 700 mine; ln -s mine $OWN", "mkdir -m 770 $OWN",
                                   "mkdir -m 700 $OWN; chown 12345 $OWN || chmod 777 $OWN", // only root gives away
                                   "mkdir -m 700 $OWN; ln -s elsewhere $OWN/names", "chmod 777 ."}) {
        SCOPED_TRACE(pszPrepare);
        const CTemporaryDirectory base;
        const std::string strShell = "cd " + base.Path().string() + "; OWN=tobix-$(id -u); " + pszPrepare;
        ASSERT_EQ(std::system(strShell.c_str()), 0);
        const bool bHarmless = pszPrepare == std::string("true");
        SetLastError({});
        EXPECT_EQ(CNameLockFile::Open({base.Path().c_str()}) != nullptr, bHarmless);
        EXPECT_EQ(LastError().dwSysError == SYS_NONE, bHarmless);
        const CTemporaryDirectory next, beforeIt;
        const auto pNext = CNameLockFile::Open({base.Path().c_str(), next.Path().c_str()});
        EXPECT_EQ(is_empty(next.Path()), bHarmless);
        // Whoever comes later has to meet the first one, though another place would do, too.
        const auto pLater = CNameLockFile::Open({beforeIt.Path().c_str(), base.Path().c_str(), next.Path().c_str()});
        ASSERT_TRUE(pNext && pLater);
        EXPECT_EQ(pNext->TryLock(1), CNameLockFile::EResult::Locked);
        EXPECT_EQ(pLater->TryLock(1), CNameLockFile::EResult::Busy);
    }
}

TEST(NamedMutexTest, KeepsOtherNamesFreeWhileTheFileSystemIsAsked)
{
    struct CLooker : CCallWatcher
    {
        void OnCall(const SCall& call) override
        {
            if (call.kind != EFault::LockName && call.kind != EFault::UnlockName)
                return;
            opened.push_back(std::async(std::launch::async, [] { const CNamedMutex other(NameOf("other")); }));
            nHeldUp += opened.back().wait_for(std::chrono::seconds(10)) == std::future_status::ready ? 0 : 1;
        }
        std::vector<std::future<void>> opened;
        int nHeldUp = 0;
    };
    const CTemporaryDirectory directory;
    CLooker looker;
    CNamedMutex mutex(NameOf("one"), directory.Path().string());
    ASSERT_EQ(mutex.Lock(0), ELockResult::Acquired);
    mutex.Unlock();
    std::thread([&] { EXPECT_EQ(mutex.Lock(0), ELockResult::Acquired); }).join(); // and ends without letting go
    EXPECT_EQ(mutex.Lock(0), ELockResult::Abandoned);
    EXPECT_GE(looker.opened.size(), 6u);
    EXPECT_EQ(looker.nHeldUp, 0);
}

TEST(NameLockFileTest, LeavesOneEmptyFileAndKnowsWhenItIsReplaced)
{
    const CTemporaryDirectory base;
    const auto pFile = CNameLockFile::Open({"/nowhere", base.Path().c_str()});
    ASSERT_NE(pFile, nullptr);
    EXPECT_EQ(pFile->TryLock(INT64_MAX >> 1), CNameLockFile::EResult::Locked);
    const auto pOther = CNameLockFile::Open({base.Path().c_str()});
    EXPECT_EQ(pOther->TryLock(INT64_MAX >> 1), CNameLockFile::EResult::Busy);
    EXPECT_EQ(pOther->TryLock(7), CNameLockFile::EResult::Locked);

    const auto file = base.Path() / ("tobix-" + std::to_string(geteuid())) / "names";
    EXPECT_EQ(std::filesystem::file_size(file), 0u);
    std::filesystem::remove(file);
    EXPECT_EQ(pFile->TryLock(8), CNameLockFile::EResult::Replaced);
    const CInjectedFault mountedAnew(EFault::LockName, 1, ENOTCONN);
    EXPECT_EQ(pOther->TryLock(9), CNameLockFile::EResult::Replaced);
}

} // namespace
