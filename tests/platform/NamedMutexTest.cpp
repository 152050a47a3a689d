#include "Platform/CEventHandle.h"
#include "Platform/CNamedMutex.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"
#include "Platform/linux/thread/CNameLockFile.h"
#include "support/CTemporaryDirectory.h"

#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

using namespace Platform;

namespace {

std::string NameOf(const char* pszTest) { return "test-" + std::to_string(getpid()) + "-" + pszTest; }

ELockResult LockElsewhere(const std::string& strName, unsigned dwMillis)
{
    ELockResult result = ELockResult::Failed;
    std::thread([&] {
        CNamedMutex mutex(strName);
        result = mutex.Lock(dwMillis);
        mutex.Unlock();
    }).join();
    return result;
}

/// Another process: runs the body, tells that it is done, and stays until it is killed.
class CChild
{
public:
    explicit CChild(const std::function<bool()>& body)
    {
        int pipes[2];
        EXPECT_EQ(pipe(pipes), 0);
        m_iProcess = fork();
        if (m_iProcess == 0) {
            const char chResult = body() ? 'y' : 'n';
            if (write(pipes[1], &chResult, 1) == 1)
                pause();
            _exit(0);
        }
        close(pipes[1]);
        char chResult = 'n';
        m_bResult = read(pipes[0], &chResult, 1) == 1 && chResult == 'y';
        close(pipes[0]);
    }
    ~CChild() { Kill(); }
    bool Result() const { return m_bResult; }
    void Kill()
    {
        if (m_iProcess > 0) {
            kill(m_iProcess, SIGKILL);
            waitpid(m_iProcess, nullptr, 0);
        }
        m_iProcess = 0;
    }

private:
    pid_t m_iProcess;
    bool m_bResult = false;
};

TEST(NamedMutexTest, ExcludesThreads)
{
    const std::string strName = NameOf("threads");
    int nInside = 0;
    int nRounds = 0;
    std::vector<std::thread> threads;
    for (int iThread = 0; iThread < 6; ++iThread) {
        threads.emplace_back([&] {
            for (int iRound = 0; iRound < 300; ++iRound) {
                CNamedMutex mutex(strName);
                ASSERT_EQ(mutex.Lock(INFINITE), ELockResult::Acquired);
                EXPECT_EQ(++nInside, 1);
                ++nRounds;
                --nInside;
                mutex.Unlock();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(nRounds, 1800);
}

TEST(NamedMutexTest, ExcludesProcessesAndIsLetGoWhenOneIsKilled)
{
    const std::string strName = NameOf("processes");
    CNamedMutex mutex(strName);
    CChild holder([&] { return CNamedMutex(strName).IsValid() && mutex.Lock(0) == ELockResult::Acquired; });
    ASSERT_TRUE(holder.Result());
    EXPECT_EQ(mutex.Lock(0), ELockResult::TimedOut);
    const uint64_t ui64Started = TickCount();
    EXPECT_EQ(mutex.Lock(60), ELockResult::TimedOut);
    EXPECT_GE(TickCount() - ui64Started, 60u);
    EXPECT_EQ(LastError().dwSysError, SYS_TIMEOUT);

    std::thread killer([&] {
        SleepMillis(30);
        holder.Kill();
    });
    EXPECT_EQ(mutex.Lock(10'000), ELockResult::Acquired);
    killer.join();
}

TEST(NamedMutexTest, ForkedChildHoldsNothingOfItsParent)
{
    const std::string strName = NameOf("fork");
    CNamedMutex mutex(strName);
    ASSERT_EQ(mutex.Lock(0), ELockResult::Acquired);
    {
        CChild child([&] {
            mutex.Unlock(); // not its own
            return mutex.Lock(0) == ELockResult::TimedOut;
        });
        EXPECT_TRUE(child.Result());
    }
    EXPECT_TRUE(CChild([&] { return mutex.Lock(0) == ELockResult::TimedOut; }).Result());
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
        first.Unlock();
        first.Unlock();
        first.Unlock(); // once too often
        EXPECT_EQ(LockElsewhere(strName, 0), ELockResult::TimedOut);
    }
    EXPECT_EQ(LockElsewhere(strName, 0), ELockResult::Acquired);
}

TEST(NamedMutexTest, OnlyTheOwningThreadUnlocks)
{
    CNamedMutex mutex(NameOf("owner"));
    ASSERT_EQ(mutex.Lock(0), ELockResult::Acquired);
    std::thread([&] { mutex.Unlock(); }).join();
    EXPECT_EQ(LockElsewhere(NameOf("owner"), 20), ELockResult::TimedOut);
}

TEST(NamedMutexTest, ThreadThatEndsAbandonsWhatItOwns)
{
    CNamedMutex mutex(NameOf("abandoned"));
    std::thread([&] { EXPECT_EQ(mutex.Lock(0), ELockResult::Acquired); }).join();
    EXPECT_EQ(mutex.Lock(0), ELockResult::Abandoned);
    mutex.Unlock();
    EXPECT_EQ(mutex.Lock(0), ELockResult::Acquired);

    ELockResult waiters = ELockResult::Failed;
    std::thread waiter([&] { waiters = mutex.Lock(10'000); });
    SleepMillis(20);
    mutex.Unlock();
    waiter.join();
    EXPECT_EQ(waiters, ELockResult::Acquired);
    EXPECT_EQ(mutex.Lock(0), ELockResult::Abandoned);
}

struct SHijack
{
    const char* pszWhat;
    void (*prepare)(const std::filesystem::path& base, const std::filesystem::path& directory);
    bool bOnlyRoot = false;
};

class NameLockFileHijackTest : public testing::TestWithParam<SHijack>
{};

TEST_P(NameLockFileHijackTest, IsRefused)
{
    if (GetParam().bOnlyRoot && geteuid() != 0)
        GTEST_SKIP() << "needs root";
    const CTemporaryDirectory base;
    const std::string strDirectory = base / ("tobix-" + std::to_string(geteuid()));
    GetParam().prepare(base.Path(), strDirectory);
    SetLastError({});
    EXPECT_EQ(CNameLockFile::Open({base.Path().c_str()}), nullptr);
    EXPECT_NE(LastError().dwSysError, SYS_NONE);
}

INSTANTIATE_TEST_SUITE_P(Prepared, NameLockFileHijackTest,
                         testing::Values(SHijack{"Link",
                                                 [](const auto& base, const auto& directory) {
                                                     mkdir((base / "mine").c_str(), 0700);
                                                     std::filesystem::create_symlink(base / "mine", directory);
                                                 }},
                                         SHijack{"OpenToOthers",
                                                 [](const auto&, const auto& directory) {
                                                     mkdir(directory.c_str(), 0700);
                                                     chmod(directory.c_str(), 0770);
                                                 }},
                                         SHijack{"OfAnotherUser",
                                                 [](const auto&, const auto& directory) {
                                                     mkdir(directory.c_str(), 0700);
                                                     EXPECT_EQ(chown(directory.c_str(), 12345, 12345), 0);
                                                 },
                                                 true},
                                         SHijack{"LinkedFile",
                                                 [](const auto& base, const auto& directory) {
                                                     mkdir(directory.c_str(), 0700);
                                                     std::filesystem::create_symlink(base / "elsewhere",
                                                                                     directory / "names");
                                                 }},
                                         SHijack{"BaseThatOthersCanRenameIn",
                                                 [](const auto& base, const auto&) { chmod(base.c_str(), 0777); }}),
                         [](const auto& test) { return test.param.pszWhat; });

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
}

} // namespace
