#include "Common/Globals.h"
#include "Tobix/COutgoingFiles.h"
#include "Tobix/CRemoteAgent.h"
#include "support/CTemporaryDirectory.h"

#include <gtest/gtest.h>
#include <string>

namespace {

/// The next name, or nothing; work is told exactly while there is one.
std::string TakenFrom(COutgoingFiles& files)
{
    const bool bWork = Bex::WaitForAny({&files.WorkWaitable()}, 0);
    Bex::CSimpleString strName;
    EXPECT_TRUE(files.Take(strName) ? bWork : !Bex::WaitForAny({&files.WorkWaitable()}, 0));
    return strName.Text();
}

} // namespace

TEST(OutgoingFilesTest, GivesNewFilesBeforeThoseReleasedForARetry)
{
    COutgoingFiles files;
    EXPECT_TRUE(files.AddPending("a"));
    EXPECT_EQ(TakenFrom(files), "a");
    files.RetryLater("a");
    EXPECT_EQ(TakenFrom(files), "");
    EXPECT_TRUE(files.AddPending("b"));
    files.ReleaseRetries();
    EXPECT_EQ(TakenFrom(files), "b");
    EXPECT_EQ(TakenFrom(files), "a");
}

TEST(OutgoingFilesTest, KeepsANameInOneListOnly)
{
    COutgoingFiles files;
    EXPECT_TRUE(files.AddPending("a"));
    EXPECT_FALSE(files.AddPending("a"));
    files.FinishDelivery("a"); // not in progress: stays
    EXPECT_EQ(TakenFrom(files), "a");
    EXPECT_FALSE(files.AddPending("a"));
    files.RetryLater("a");
    EXPECT_FALSE(files.AddPending("a"));
    files.RetryLater("unknown");
    files.ReleaseRetries();
    EXPECT_EQ(TakenFrom(files), "a");
    EXPECT_EQ(TakenFrom(files), "unknown");
    EXPECT_EQ(TakenFrom(files), "");
    files.FinishDelivery("a");
    EXPECT_TRUE(files.AddPending("a"));
    EXPECT_TRUE(files.AddPending("A"));
}

TEST(OutgoingFilesTest, LetsSoManyThreadsBeAtOneDomainAndTheRestKeepTheirPlaces)
{
    COutgoingFiles files(1);
    for (const auto& [strName, strDomain] : {std::pair{"b", "x"}, {"c", "y"}, {"d", "x"}})
        files.Announce(strName, strDomain);
    files.Withdraw("d");
    for (const char* pszName : {"a", "b", "c", "d"})
        EXPECT_TRUE(files.AddPending(pszName));
    EXPECT_EQ(TakenFrom(files), "a");
    EXPECT_TRUE(files.WantsDomain("a"));
    EXPECT_TRUE(files.EnterDomain("a", "x"));
    EXPECT_EQ(TakenFrom(files), "c");
    EXPECT_FALSE(files.WantsDomain("c"));
    EXPECT_EQ(TakenFrom(files), "d");
    EXPECT_FALSE(files.EnterDomain("d", "x"));
    EXPECT_EQ(TakenFrom(files), "");
    files.FinishDelivery("c");
    files.RetryLater("a");
    files.ReleaseRetries();
    EXPECT_TRUE(files.HasPending());
    EXPECT_EQ(TakenFrom(files), "b");
    EXPECT_EQ(TakenFrom(files), "");
    files.AddPending("e");
    files.FinishDelivery("b");
    EXPECT_EQ(TakenFrom(files), "d");
    EXPECT_EQ(TakenFrom(files), "e");
    files.FinishDelivery("d");
    EXPECT_FALSE(files.HasPending());
    EXPECT_EQ(TakenFrom(files), "a");
    for (int i = 0; i < 200'000; ++i) { // takes for ever if each had to look at all
        files.Announce(std::to_string(i), "x");
        files.AddPending(std::to_string(i));
    }
    EXPECT_EQ(TakenFrom(files), "");
    files.SetAside("a");
    for (int i = 0; i < 200'000; ++i) {
        EXPECT_EQ(TakenFrom(files), std::to_string(i));
        files.FinishDelivery(std::to_string(i));
    }
}

TEST(OutgoingFilesTest, GivesWhatGoesTheSameWayBeforeItsTurnAndThePlaceAtItsDomain)
{
    COutgoingFiles files(1, true);
    for (const auto& [strName, strDomain] : {std::pair{"a", "x"}, {"b", "y"}, {"c", "x"}, {"d", ""}, {"e", "x"}}) {
        files.Announce(strName, strDomain, strDomain);
        if (*strDomain == '\0') // nobody knows where that goes
            files.Withdraw(strName);
        files.AddPending(strName);
    }
    Bex::CSimpleString strNext;
    EXPECT_EQ(TakenFrom(files), "a");
    EXPECT_TRUE(files.TakeAlong("a", "x", strNext) && strNext == "c");
    files.GiveBack("c", "a"); // behind those that have waited for longer
    EXPECT_EQ(TakenFrom(files), "b");
    EXPECT_TRUE(files.TakeAlong("b", "y", strNext) && strNext == "d");
    EXPECT_EQ(TakenFrom(files), ""); // a is at their domain still
    EXPECT_TRUE(files.TakeAlong("a", "x", strNext) && strNext == "e");
    files.FinishDelivery("a"); // its place is the other's
    EXPECT_EQ(TakenFrom(files), "");
    files.GiveBack("e", "a");
    EXPECT_EQ(TakenFrom(files), "e");
    EXPECT_TRUE(files.TakeAlong("e", "x", strNext) && strNext == "c");
    EXPECT_FALSE(files.TakeAlong("c", "x", strNext));
}

class RemoteAgentTest : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string strConfig =
            m_directory.Write("tobix.cfg", "OutgoingDir: " + m_directory / "outgoing" +
                                               "\nAutoTransRetryMin: 10\nAutoTransRetryMax: 30\n");
        m_directory.Write("outgoing/a.eml", "mail");
        m_directory.Write("outgoing/empty.eml", "");
        m_directory.Write("outgoing/other.txt", "mail");
        ASSERT_TRUE(Config().Load(strConfig.c_str()));
    }
    CTemporaryDirectory m_directory;
};

TEST_F(RemoteAgentTest, ListsOnlyAfterChangesAndKnowsEachFileOnce)
{
    CRemoteAgent agent(std::make_shared<COutgoingFiles>());
    EXPECT_EQ(agent.ScanOutgoing(1000000), 1u);
    EXPECT_EQ(agent.ScanOutgoing(1000001), 0u);
    m_directory.Write("outgoing/empty.eml", "now it has content");
    m_directory.Write("outgoing/b.eml", "mail");
    EXPECT_EQ(agent.ScanOutgoing(1000002), 2u);
}

TEST_F(RemoteAgentTest, ReleasesAllRetriesTogetherByTheClock)
{
    CRemoteAgent agent(std::make_shared<COutgoingFiles>());
    agent.ScanOutgoing(5); // the machine has just begun
    EXPECT_EQ(TakenFrom(*agent.Files()), "a.eml");
    agent.Files()->RetryLater("a.eml");
    agent.ScanOutgoing(605);
    EXPECT_EQ(TakenFrom(*agent.Files()), "");
    agent.ScanOutgoing(606);
    EXPECT_EQ(TakenFrom(*agent.Files()), "a.eml");
    agent.Files()->RetryLater("a.eml");
    m_directory.Write("outgoing/b.eml", "mail");
    EXPECT_EQ(agent.ScanOutgoing(607), 1u);
    agent.ScanOutgoing(2406); // new mail is pending: the longer interval holds
    EXPECT_EQ(TakenFrom(*agent.Files()), "b.eml");
    EXPECT_EQ(TakenFrom(*agent.Files()), "");
    agent.Files()->AddPending("c.eml");
    agent.ScanOutgoing(2407);
    EXPECT_EQ(TakenFrom(*agent.Files()), "c.eml");
    EXPECT_EQ(TakenFrom(*agent.Files()), "a.eml");
}

TEST_F(RemoteAgentTest, RestsForAsLongAsListingIsATenthOfAProcessor)
{
    EXPECT_EQ(CRemoteAgent::RestMillis(2'000'000), 18'000u);
    EXPECT_EQ(CRemoteAgent::RestMillis(20), 1u);
}
