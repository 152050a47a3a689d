#include "Bex/Log.h"
#include "Common/Globals.h"
#include "Platform/Clock.h"
#include "Platform/FaultInjection.h"
#include "Tobix/CLocalAgent.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <string>

namespace fs = std::filesystem;

namespace {

constexpr uint64_t DEADLINE_MILLIS = 60000;

/// Keeps the lines of the main log.
class CLines : public Bex::ILogDestination
{
public:
    void Write(int, const char* pszText, unsigned) override
    {
        const std::lock_guard lock(m_mutex);
        m_strText.append(pszText).append("\n");
    }
    void Flush() override {}
    bool Contains(const std::string& strText)
    {
        const std::lock_guard lock(m_mutex);
        return m_strText.find(strText) != std::string::npos;
    }

private:
    std::mutex m_mutex;
    std::string m_strText;
};

/// The agent on a mail tree of its own, with the one user "ann" at "example.org".
class AgentTest : public testing::Test
{
protected:
    void SetUp() override
    {
        Bex::MainLog().Replace(m_pLines);
        for (const char* pszName : {"etc", "queue", "spool/ann", "error", "outgoing", "filtered", "intercepted"})
            fs::create_directories(Path(pszName));
        m_directory.Write("etc/domains", "example.org\n");
        m_directory.Write("etc/aliases", "");
        m_directory.Write("spool/ann/config", "");
        m_directory.Write("etc/tobix.cfg", "QueueDir: " + Path("queue") + "\nSpoolDir: " + Path("spool") +
                                               "\nErrorDir: " + Path("error") + "\nOutgoingDir: " + Path("outgoing") +
                                               "\nFilterDir: " + Path("filtered") +
                                               "\nInterceptDir: " + Path("intercepted") + "\n");
        ASSERT_EQ(setenv("MAILCONFIGDIR", Path("etc").c_str(), 1), 0);
        ASSERT_TRUE(Config().Load(Path("etc/tobix.cfg").c_str()));
        ASSERT_TRUE(Users().InitUsers());
        ASSERT_TRUE(LocalDomains().Load(Path("etc/domains").c_str()));
        ASSERT_TRUE(Aliases().Load(Path("etc/aliases").c_str()));
    }
    void TearDown() override
    {
        Users().ChangeMonitor().Destroy();
        Bex::MainLog().Replace(nullptr);
    }

    std::string Path(const std::string& strName) const { return m_directory / strName; }
    void Drop(const std::string& strName, const std::string& strTo) const
    {
        m_directory.Write("mail",
                          "X-Envelope-To: " + strTo + "\r\nFrom: <bob@far.example>\r\nSubject: x\r\n\r\nbody\r\n");
        fs::rename(Path("mail"), Path("queue/" + strName));
    }
    size_t CountIn(const std::string& strName) const
    {
        size_t nCount = 0;
        for (const auto& entry : fs::directory_iterator(Path(strName)))
            nCount += entry.path().extension() == ".eml";
        return nCount;
    }
    template <class TCondition>
    bool WaitFor(TCondition Condition) const
    {
        const uint64_t nEnd = Platform::TickCount() + DEADLINE_MILLIS;
        while (!Condition() && Platform::TickCount() < nEnd)
            Platform::SleepMillis(2);
        return Condition();
    }
    /// Runs an agent until the queue is empty, or as long as the condition asks.
    template <class TCondition>
    void RunAgentUntil(TCondition Condition)
    {
        CLocalAgent agent;
        ASSERT_TRUE(agent.Start());
        EXPECT_TRUE(WaitFor(Condition));
        EXPECT_TRUE(WaitFor([&] { return agent.Stop(); }));
    }
    void RunAgentUntilQueueIsEmpty()
    {
        RunAgentUntil([this] { return CountIn("queue") == 0; });
    }

    CTemporaryDirectory m_directory;
    std::shared_ptr<CLines> m_pLines = std::make_shared<CLines>();
};

} // namespace

TEST_F(AgentTest, MovesMailToTheErrorDirectoryWhenItsCopiesCannotBeMadeDurable)
{
    Drop("1.eml", "ann@example.org");
    Drop("2.eml", "eve@far.example");
    const Platform::CInjectedFault fault(Platform::EFault::FlushVolume, 1, EIO);
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(CountIn("error"), 2u);
    EXPECT_TRUE(m_pLines->Contains("flushing delivered mail failed"));
    EXPECT_TRUE(m_pLines->Contains("delivering mail '1.eml' failed, placing in error"));
}

TEST_F(AgentTest, DeliversOnceWhatItCannotDeleteAtFirst)
{
    Drop("1.eml", "ann@example.org");
    const Platform::CInjectedFault fault(Platform::EFault::Remove, 1, EBUSY, 2);
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(CountIn("spool/ann"), 1u);
    EXPECT_TRUE(m_pLines->Contains("caught at Tobix/LocalAgent:433"));
}

TEST_F(AgentTest, TriesAgainByItselfWhatAShortageKeptFromBeingRead)
{
    Drop("1.eml", "ann@example.org");
    const Platform::CInjectedFault shortage(Platform::EFault::Open, 2,
                                            EMFILE); // the first one is the list of interceptions
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(CountIn("spool/ann"), 1u);
    EXPECT_TRUE(m_pLines->Contains("Looks like lock on file"));
}

TEST_F(AgentTest, KeepsMailInTheQueueWhileTheErrorDirectoryIsAway)
{
    fs::remove(Path("error"));
    Drop("1.eml", "nobody@example.org");
    RunAgentUntil([this] { return m_pLines->Contains("caught at Tobix/LocalAgent:142"); });
    EXPECT_EQ(CountIn("queue"), 1u);
    fs::create_directory(Path("error"));
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(CountIn("error"), 1u);
}

TEST_F(AgentTest, StoresNothingHalfWhenWritingFails)
{
    Drop("1.eml", "ann@example.org");
    const Platform::CInjectedFault fault(Platform::EFault::Rename, 1, ENOSPC);
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(CountIn("spool/ann"), 0u);
    EXPECT_EQ(CountIn("error"), 1u);
    EXPECT_FALSE(fs::exists(Path("spool/ann/.1.eml.tmp")));
    EXPECT_TRUE(m_pLines->Contains("error in Tobix/LocalAgent:313, errno=28"));
}

TEST_F(AgentTest, CountsStoredMailAsDeliveredWhenItsNumberCannotBeRecorded)
{
    Drop("1.eml", "ann@example.org");
    const Platform::CInjectedFault fault(Platform::EFault::Rename, 2, ENOSPC); // the first one names the mail
    RunAgentUntilQueueIsEmpty();
    Drop("2.eml", "ann@example.org");
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(CountIn("spool/ann"), 2u);
    EXPECT_EQ(CountIn("error"), 0u);
}

TEST_F(AgentTest, RemovesTheUnfinishedFilesOfACrash)
{
    m_directory.Write("outgoing/.2026.eml.tmp", "half");
    m_directory.Write("outgoing/.other", "not ours");
    const std::ofstream another(Path("outgoing/.2025.eml.tmp")); // another program's, and it takes no locks
    RunAgentUntil([this] { return !fs::exists(Path("outgoing/.2026.eml.tmp")); });
    EXPECT_TRUE(fs::exists(Path("outgoing/.other")));
    EXPECT_TRUE(fs::exists(Path("outgoing/.2025.eml.tmp")));
}

TEST_F(AgentTest, NeverStoresMailOutsideTheSpoolDirectory)
{
    m_directory.Write("etc/config", "");
    fs::current_path(Path("etc")); // where the daemon works: a relative path would end up here
    Drop("1.eml", ".ann@example.org");
    Aliases().Set(".ann@example.org", ".ann");
    RunAgentUntilQueueIsEmpty();
    fs::current_path("/");
    EXPECT_EQ(CountIn("etc"), 0u);
    EXPECT_EQ(CountIn("error"), 1u);
    EXPECT_TRUE(m_pLines->Contains("couldn't load account config: " + Path("spool/.ann/config")));
}
