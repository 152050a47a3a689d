#include "Bex/CMutex.h"
#include "Bex/TextFunctions.h"
#include "Common/CToldMark.h"
#include "Common/Globals.h"
#include "Platform/CAdvancedClock.h"
#include "Platform/CInjectedFault.h"
#include "Tobix/CLocalAgent.h"
#include "support/Becomes.h"
#include "support/CDnsServer.h"
#include "support/CLogRecorder.h"
#include "support/CPowerLossModel.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>

namespace fs = std::filesystem;

namespace {

/// The agent on a mail tree of its own, with the one user "ann" at "example.org".
class AgentTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string strConfig;
        for (const std::string strName : {"queue", "spool", "error", "outgoing", "filter", "intercept"}) {
            fs::create_directories(Path(strName));
            strConfig += std::string(1, static_cast<char>(std::toupper(strName[0]))) + strName.substr(1) +
                         "Dir: " + Path(strName) + "\n";
        }
        m_directory.Write("etc/tobix.cfg", strConfig);
        m_directory.Write("etc/domains", "example.org\n");
        m_directory.Write("etc/aliases", "");
        m_directory.Write("spool/ann/config", "");
        ASSERT_EQ(setenv("MAILCONFIGDIR", Path("etc").c_str(), 1), 0);
        ASSERT_TRUE(Config().Load(Path("etc/tobix.cfg").c_str()));
        ASSERT_TRUE(Users().InitUsers());
        ASSERT_TRUE(LocalDomains().Load(Path("etc/domains").c_str()));
        ASSERT_TRUE(Aliases().Load(Path("etc/aliases").c_str()));
    }
    void TearDown() override { Users().ChangeMonitor().Destroy(); }

    std::string Path(const std::string& strName) const { return m_directory / strName; }
    void Drop(const std::string& strName, const std::string& strTo, const std::string& strRest = "\r\nbody\r\n") const
    {
        m_directory.Write("mail", "X-Envelope-To: " + strTo + "\r\nFrom: <bob@far.example>\r\n" + strRest);
        fs::rename(Path("mail"), Path("queue/" + strName));
    }
    size_t CountIn(const std::string& strName) const
    {
        size_t nCount = 0;
        for (const auto& entry : fs::directory_iterator(Path(strName)))
            nCount += entry.path().extension() == ".eml";
        return nCount;
    }
    /// Runs an agent until the queue is empty, or as long as the condition asks.
    template <class TCondition>
    void RunAgentUntil(TCondition Condition)
    {
        CLocalAgent agent(m_pOutgoing);
        ASSERT_TRUE(agent.Start());
        EXPECT_TRUE(Becomes(Condition));
        EXPECT_TRUE(Becomes([&] { return agent.Stop(); }));
    }
    void RunAgentUntilQueueIsEmpty()
    {
        RunAgentUntil([this] { return CountIn("queue") == 0; });
    }

    /// An account of which another host, which shares the named locks, has the lock.
    void HoldBenElsewhere(const char* pszConfig)
    {
        m_directory.Write("spool/ben/config", pszConfig);
        fs::create_directory(Path("locks"));
        Config().Set("LockDir", Path("locks").c_str());
        ASSERT_TRUE(Users().InitUsers());
        m_ofAnotherHost.emplace("ben/config", Path("locks").c_str());
        ASSERT_TRUE(m_ofAnotherHost->Lock(0));
    }

    CTemporaryDirectory m_directory{CTemporaryDirectory::IN_MEMORY};
    CLogRecorder m_log;
    std::shared_ptr<COutgoingFiles> m_pOutgoing = std::make_shared<COutgoingFiles>(1);
    std::optional<Bex::CMutex> m_ofAnotherHost;
};

using Platform::EFault;

} // namespace

TEST_F(AgentTest, StoresEachMailWholeOrMovesIt)
{
    const struct
    {
        EFault fault;
        unsigned nCall;
        int iErrno;
        size_t nFailed; ///< of two mails, moved to the error directory
        const char* pszLog;
        size_t nStored = 2 - nFailed;
        unsigned nTimes = 1;
    } CASES[] = {{EFault::FlushVolume, 1, EIO, 2, "flushing delivered mail failed", 2, 2}, // in one group or two
                 {EFault::Remove, 1, EBUSY, 0, "caught at Tobix/LocalAgent:433"},
                 {EFault::Open, 2, EMFILE, 0, "Looks like lock on file"},
                 {EFault::Lock, 1, EAGAIN, 0, "Looks like lock on file"},
                 {EFault::LockName, 1, ENOLCK, 0, "no place for named locks can be used"},
                 {EFault::LockName, 2, ENOLCK, 0, "no place for named locks can be used"}, // the account's
                 {EFault::Lease, 1, EAGAIN, 0, "Looks like lock on file"},                 // being written
                 {EFault::Read, 1, EIO, 1, "errno=5"},
                 {EFault::ReadDirectory, 19, EIO, 0, "caught at Tobix/LocalAgent"},
                 {EFault::Write, 1, ENOSPC, 1, "error in Tobix/LocalAgent:313, errno=28"},
                 {EFault::Rename, 1, ENOSPC, 1, "error in Tobix/LocalAgent:313, errno=28"},
                 {EFault::Close, 2, EIO, 1, "errno=5"},
                 {EFault::Rename, 1, EINVAL, 0, "saved in <ann>"},            // one that cannot refuse to replace
                 {EFault::Write, 2, ENOSPC, 0, "caught at Tobix/LocalAgent"}, // of the next number
                 {EFault::Rename, 2, ENOSPC, 0, "saved in <ann>"}};
    for (const auto& tried : CASES) {
        SCOPED_TRACE(testing::Message() << "fault " << static_cast<int>(tried.fault) << " at call " << tried.nCall);
        for (const char* pszName : {"spool", "error"})
            fs::remove_all(Path(pszName));
        TearDown();
        SetUp();
        Users().ChangeMonitor().Destroy(); // its thread makes calls, too, which must not be counted
        Drop("1.eml", "ann@example.org");
        Drop("2.eml", "ann@example.org");
        const Platform::CInjectedFault fault(tried.fault, tried.nCall, tried.iErrno, tried.nTimes);
        RunAgentUntilQueueIsEmpty();
        EXPECT_EQ(CountIn("spool/ann"), tried.nStored);
        EXPECT_EQ(CountIn("error"), tried.nFailed);
        EXPECT_NE(m_log.Take().find(tried.pszLog), std::string::npos);
        for (const char* pszFile : {"spool/ann/1.eml", "spool/ann/2.eml", "error/1.eml", "error/2.eml"})
            EXPECT_TRUE(!fs::exists(Path(pszFile)) || m_directory.Read(pszFile).ends_with("body\r\n")) << pszFile;
        for (const char* pszFile : {"spool/ann/.1.eml.tmp", "spool/ann/.2.eml.tmp"})
            EXPECT_FALSE(fs::exists(Path(pszFile)));
    }
}

TEST_F(AgentTest, EndsMailThatGoesRoundAndTakesNoneWhileAVolumeIsShort)
{
    Config().Set("Header.Received.Max", "2");
    Config().Set("Queue.MinFree", "100");
    std::optional<Platform::CInjectedFault> unknown; // has enough
    m_log.SetListener([&](const std::string& strLine) {
        if (strLine.find("no mail is taken from the queue while less than 100%") != std::string::npos) {
            EXPECT_EQ(CountIn("queue"), 2u);
            unknown.emplace(EFault::FreeSpace, 2, EIO, UINT_MAX);
        }
    });
    Drop("1.eml", "ann@example.org", "Received: a\r\nRECEIVED: b\r\n\r\nReceived: c");
    Drop("2.eml", "ann@example.org", "Received: a\r\nReceived: b\r\n\tb\r\nReceived: c\r\n\r\n");
    RunAgentUntilQueueIsEmpty();
    EXPECT_TRUE(unknown && m_log.Contains("mail is taken from the queue again") && fs::exists(Path("error/2.eml")));
    EXPECT_TRUE(m_log.Contains("goes round: it has 3 Received fields, more than 2") && CountIn("spool/ann") == 1);
}

TEST_F(AgentTest, StoresInAMaildirWhatTheTaggerHasSeen)
{
    const auto Only = [this](const char* pszDirectory) {
        const auto files = fs::directory_iterator(Path(pszDirectory));
        return files == fs::directory_iterator() ? std::string() : files->path().filename().string();
    };
    m_directory.Write("spool/ann/config", "NextUID: 41\nMaildir: 1\n");
    const std::string strOld = m_directory.Write("spool/ann/Maildir/tmp/old", "half");
    fs::last_write_time(strOld, fs::file_time_type::clock::now() - std::chrono::hours(37));
    const std::string strScript = m_directory.Write("spool/ann/newmail.cmd", "#!/bin/sh\ncp \"$1\" seen\n");
    fs::permissions(strScript, fs::perms::owner_all);
    Config().Set("Scripts.Execution.Parallel", "0");
    Drop("1.eml", "ann@example.org");
    RunAgentUntilQueueIsEmpty();
    const std::string strName = Only("spool/ann/Maildir/new"), strMail = m_directory.Read("spool/ann/seen");
    EXPECT_TRUE(strMail.ends_with("\r\n\r\nbody\r\n") && Only("spool/ann/Maildir/tmp").empty());
    EXPECT_THAT(strName,
                testing::MatchesRegex("[0-9]+\\.M[0-9]+P[0-9]+Q41\\.[^/:,]+,S=" + std::to_string(strMail.size())));

    fs::remove(Path("spool/ann/Maildir/new/" + strName));
    m_directory.Write("spool/ann/config", "NextUID: 42\nMaildir: 1\nRunAntiSpam: 1\n");
    fs::permissions(m_directory.Write("etc/spamscan.exe", "#!/bin/sh\nsleep 0.2; echo tagged >>\"$1\"\n"),
                    fs::perms::owner_all);
    Config().Set("Scripts.Execution.Parallel", "1");
    Drop("2.eml", "ann@example.org");
    fs::current_path(Path("etc"));
    RunAgentUntilQueueIsEmpty();
    EXPECT_TRUE(
        m_directory.Read("spool/ann/Maildir/new/" + Only("spool/ann/Maildir/new")).ends_with("body\r\ntagged\n"));
    EXPECT_EQ(Only("spool/ann/Maildir/new").find(",S="), std::string::npos);
    EXPECT_NE(m_directory.Read("spool/ann/config").find("NextUID: 43"), std::string::npos);

    fs::rename(Path("spool/ann/Maildir/new"), Path("elsewhere"));
    fs::create_symlink(Path("elsewhere"), Path("spool/ann/Maildir/new"));
    Drop("3.eml", "ann@example.org");
    RunAgentUntilQueueIsEmpty();
    fs::current_path("/");
    EXPECT_TRUE(fs::exists(Path("error/3.eml")) && m_log.Contains("spool/ann/Maildir/new"));
}

TEST_F(AgentTest, PassesOverANameThatWentAfterItWasListed)
{
    Drop("1.eml", "nobody@example.org");
    Drop("2.eml", "ann@example.org");
    m_log.SetListener([&](const std::string& strLine) {
        if (strLine.find("delivering mail '1.eml' failed") != std::string::npos)
            fs::remove(Path("queue/2.eml"));
    });
    RunAgentUntilQueueIsEmpty();
    EXPECT_FALSE(m_log.Contains("delivering mail '2.eml' failed"));
}

TEST_F(AgentTest, TakesAFileWhoseWritersCannotBeToldOnceItStandsStill)
{
    const Platform::CInjectedFault unleased(EFault::Lease, 1, EACCES, 1000);
    Drop("1.eml", "ann@example.org");
    RunAgentUntilQueueIsEmpty();
    EXPECT_TRUE(m_log.Contains("Looks like lock"));
    EXPECT_EQ(CountIn("spool/ann"), 1u);
}

TEST_F(AgentTest, LooksAtAFileTooShortForAMailOnlyAfterAChange)
{
    m_directory.Write("queue/1.eml", "a:");
    std::optional<Platform::CInjectedFault> unlisted;
    m_log.SetListener([&](const std::string& strLine) {
        if (strLine.find("Looks like lock") != std::string::npos)
            unlisted.emplace(EFault::ListDirectory, 1, EIO);
    });
    RunAgentUntil([ui64End = Platform::TickCount() + 1300] { return Platform::TickCount() > ui64End; });
    EXPECT_TRUE(unlisted && !m_log.Contains("caught at Tobix/LocalAgent"));
}

TEST_F(AgentTest, DeliversNothingAgainWhileTheErrorDirectoryIsAway)
{
    fs::remove(Path("error"));
    Drop("1.eml", "ann@example.org,nobody@example.org");
    RunAgentUntil([this, nDropped = size_t{1}]() mutable {
        if (CountIn("spool/ann") == nDropped && nDropped < 4)
            Drop(std::to_string(++nDropped) + ".eml", "ann@example.org");
        return CountIn("queue") == 1 && nDropped == 4;
    });
    EXPECT_TRUE(fs::exists(Path("queue/1.eml.failed"))); // what another process may find
    fs::create_directories(Path("error"));
    RunAgentUntil([this] { return fs::exists(Path("error/1.eml")); });
    EXPECT_EQ(CountIn("error"), 1u);
    EXPECT_EQ(CountIn("spool/ann"), 4u);
    const std::string strLog = m_log.Take(), strNotMoved = "caught at Tobix/LocalAgent:142";
    EXPECT_LT(strLog.find(strNotMoved), strLog.size());
    EXPECT_EQ(strLog.find(strNotMoved), strLog.rfind(strNotMoved));
}

TEST_F(AgentTest, NobodyGetsASecondCopyWhenSomethingIsShortAfterTheFirst)
{
    Drop("1.eml", "ann@example.org,bob@far.example,cy@far.example", "Return-Path: <re@far.example>\r\n\r\nbody\r\n");
    std::optional<Platform::CInjectedFault> shortage;
    m_log.SetListener([&](const std::string& strLine) {
        if (strLine.ends_with("saved in <ann>"))
            shortage.emplace(EFault::Open, 1, EMFILE, 2); // the next copy's, then that of the rest
        if (strLine.find("Looks like lock") != std::string::npos && shortage && CountIn("spool/ann") == 1)
            Drop("1.eml", "ann@example.org"); // takes the name meanwhile
    });
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(CountIn("spool/ann"), 2u);
    EXPECT_EQ(CountIn("outgoing"), 2u);
    EXPECT_TRUE(m_log.Contains("Looks like lock on file"));
    const std::string strCopy =
        m_directory.Read("outgoing/" + fs::directory_iterator(Path("outgoing"))->path().filename().string());
    EXPECT_NE(strCopy.find("To: <ann@example.org>"), std::string::npos) << strCopy;
    EXPECT_TRUE(strCopy.starts_with("X-Envelope-From: re@far.example\r\n") && strCopy.ends_with("\r\n\r\nbody\r\n"));

    std::optional<Platform::CInjectedFault> full; // the volume of the queue, at the rest
    m_log.SetListener([&](const std::string& strLine) {
        if (strLine.ends_with("saved in <ann>")) {
            shortage.emplace(EFault::Open, 1, EMFILE);
            full.emplace(EFault::Write, 1, ENOSPC);
        }
    });
    Drop("2.eml", "ann@example.org,bob@far.example");
    RunAgentUntilQueueIsEmpty();
    EXPECT_NE(m_directory.Read("error/2.eml").find("X-Envelope-To: <bob@far.example>\r\n"), std::string::npos);
}

TEST_F(AgentTest, LetsAGroupEndBeforeAScriptIsWaitedFor)
{
    Config().Set("AsyncScripts", "0");
    const std::string strScript =
        m_directory.Write("spool/ann/newmail.cmd", "#!/bin/sh\nls ../../queue >>../../seen\n");
    fs::permissions(strScript, fs::perms::owner_all);
    Drop("1.eml", "ann@example.org");
    Drop("2.eml", "ann@example.org");
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(m_directory.Read("seen"), "1.eml\n2.eml\n2.eml\n");
}

TEST_F(AgentTest, LetsAGroupEndAfterASecondOrBeforeALockIsWaitedForAndFlushesThatItsFilesWent)
{
    m_directory.Write("spool/ben/config", "");
    ASSERT_TRUE(Users().InitUsers());
    Users().ChangeMonitor().Destroy(); // its thread makes calls, too, which nobody is to watch
    struct CFlushes : Platform::CCallWatcher
    {
        void OnCall(const Platform::SCall& call) override
        {
            struct stat status = {};
            if (call.kind == EFault::FlushVolume && fstat(call.iDescriptor, &status) == 0)
                devices.insert(status.st_dev);
        }
        std::set<dev_t> devices;
    } flushes;
    const CTemporaryDirectory queue; // on another volume
    Config().Set("QueueDir", queue.Path().c_str());
    for (const char* pszName : {"1.eml", "2.eml", "3.eml", "4.eml"})
        queue.Write(pszName,
                    std::string("X-Envelope-To: ") + (*pszName < '4' ? "ann" : "ben") + "@example.org\r\n\r\nx");
    Platform::CAdvancedClock clock;
    std::vector<size_t> queued;
    m_log.SetListener([&](const std::string& strLine) {
        if (!strLine.ends_with("saved in <ann>"))
            return;
        queued.push_back(queue.Names().size());
        if (queued.size() == 1)
            clock.Advance(1000);
    });
    Bex::CMutex account(Bex::AccountLockName(Path("spool/ben/config")));
    ASSERT_TRUE(account.Lock(0));
    RunAgentUntil([&] { return queue.Names().size() == 1; }); // a stop does not wait for it
    account.Unlock();
    RunAgentUntil([&] { return queue.Names().empty(); });
    EXPECT_EQ(queued, (std::vector<size_t>{4, 3, 3}));
    struct stat status = {};
    ASSERT_EQ(stat(queue.Path().c_str(), &status), 0);
    EXPECT_TRUE(flushes.devices.contains(status.st_dev));
}

TEST_F(AgentTest, TakesMailForAnAccountThatAnotherHostHoldsUpAgainAndServesNobodyTwice)
{
    ASSERT_NO_FATAL_FAILURE(HoldBenElsewhere("NextUID: 7\n"));
    Drop("1.eml", "ben@example.org,ann@example.org");
    constexpr size_t MAILS = 20, PASSES = 10;
    for (size_t n = 0; n < MAILS; ++n)
        Drop("held." + std::to_string(n) + ".eml", "ben@example.org");
    struct COpens : Platform::CCallWatcher
    {
        void OnCall(const Platform::SCall& call) override
        {
            if (call.kind == EFault::Open && std::string_view(call.pszPath).find("/held.") != std::string_view::npos)
                ++nHeld;
        }
        std::atomic<size_t> nHeld = 0;
    } opens;
    Platform::CAdvancedClock clock;
    size_t nPasses = 0;
    RunAgentUntil([&] {
        if (fs::exists(Path("queue/1.eml")))
            clock.Advance(100);
        else if (CountIn("spool/ann") == 1 + nPasses && nPasses < PASSES)
            Drop(std::to_string(++nPasses) + ".pass.eml", "ann@example.org"); // has all of the queue looked at
        return CountIn("spool/ann") == 1 + PASSES;
    });
    EXPECT_EQ(CountIn("queue"), 1 + MAILS);
    EXPECT_LT(opens.nHeld, 4 * MAILS); // not all of them in each pass
    m_ofAnotherHost->Unlock();
    const Platform::CInjectedFault noQuorum(EFault::Write, 1, EIO, 2);
    RunAgentUntilQueueIsEmpty();
    EXPECT_NE(m_log.Take().find("error in Tobix/LocalAgent:313, errno=5"), std::string::npos);
    EXPECT_TRUE(CountIn("spool/ben") == 1 + MAILS && CountIn("spool/ann") == 1 + PASSES && CountIn("error") == 0);
}

TEST_F(AgentTest, KeepsNoRestOfAMailWhoseCopiesMayBeLost)
{
    ASSERT_NO_FATAL_FAILURE(HoldBenElsewhere(""));
    Drop("0.eml", "ben@example.org");
    std::string strRecipients;
    for (uint32_t n = 0; n < CCopyGroup::MOST_COPIES; ++n)
        strRecipients += "ann+" + std::to_string(n) + "@example.org,";
    const Platform::CInjectedFault away(EFault::FlushVolume, 1, ENOTCONN); // as the rest wants a place in the group
    Platform::CAdvancedClock clock;
    RunAgentUntil([&, bDropped = false]() mutable {
        if (!m_log.Contains("0.eml\" failed, retrying later"))
            clock.Advance(100);
        else if (!std::exchange(bDropped, true))
            Drop("1.eml", strRecipients + "ben@example.org");
        return bDropped && !fs::exists(Path("queue/1.eml"));
    });
    EXPECT_GT(CountIn("spool/ann"), CCopyGroup::MOST_COPIES);
    EXPECT_EQ(CountIn("queue"), 2u);
}

TEST_F(AgentTest, FlushesAfterSixtyFourCopiesAlsoWithinAMail)
{
    std::atomic<uint32_t> nUnflushed = 0;
    struct CFlushes : Platform::CCallWatcher
    {
        explicit CFlushes(std::atomic<uint32_t>& nCopies) : nUnflushed(nCopies) {}
        void OnCall(const Platform::SCall& call) override
        {
            if (call.kind == EFault::FlushVolume)
                nUnflushed = 0;
        }
        std::atomic<uint32_t>& nUnflushed;
    } flushes(nUnflushed);
    uint32_t nMost = 0;
    m_log.SetListener([&](const std::string& strLine) {
        if (strLine.ends_with("saved in <ann>"))
            nMost = std::max(nMost, ++nUnflushed);
    });
    std::string strRecipients;
    for (int n = 0; n < 200; ++n)
        strRecipients += "ann+" + std::to_string(n) + "@example.org,";
    Drop("1.eml", strRecipients.c_str());
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(CountIn("spool/ann"), 200u);
    EXPECT_LE(nMost, CCopyGroup::MOST_COPIES);
    EXPECT_GT(nMost, 1u);
}

TEST_F(AgentTest, FailsWhatIsStoredDuringAFlushThatFailsAndNothingElse)
{
    CCopyGroup group([] {}, [](std::string_view) {});
    const auto store = [&] { group.SaveBy(Path("spool/ann").c_str(), [] { return SSaveResult(); }); };
    std::vector<CCopyGroup::SDelivered> delivered;
    Platform::SError unpromised;
    for (const bool bDuring : {true, false}) {
        group.BeginMail();
        store();
        const CCopyGroup::SPart part = group.HandOver();
        EXPECT_FALSE(group.IsEmpty() || group.HasRoomFor(CCopyGroup::MOST_COPIES));
        if (bDuring)
            store();
        group.SettleAside(false, {Platform::LIB_IO, Platform::SYS_IO});
        store();
        EXPECT_EQ(group.Finish(delivered, unpromised), !bDuring);
    }
    for (int n = 100; n < 200; ++n)
        Drop(std::to_string(n) + ".eml", "ann@example.org");
    const Platform::CInjectedFault fault(EFault::FlushVolume, 1, EIO);
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(CountIn("spool/ann"), 100u);
    EXPECT_GE(CountIn("error"), 30u); // of the first flush, which began aside
    EXPECT_LE(CountIn("error"), CCopyGroup::MOST_COPIES);
    const size_t nFailed = CountIn("error");
    const Platform::CInjectedFault away(EFault::FlushVolume, 1, ENOTCONN);
    Drop("1.eml", "ann@example.org");
    RunAgentUntilQueueIsEmpty();
    EXPECT_EQ(std::pair(CountIn("spool/ann"), CountIn("error")), std::pair(size_t{102}, nFailed)); // as after a crash
}

TEST_F(AgentTest, AStopEndsAQuestionToSilentNameServersBeforeTheMailHasACopy)
{
    CDnsServer names;
    names.Tell("_dmarc.far.example", CDnsServer::TXT, {}, CDnsServer::SILENCE);
    ASSERT_TRUE(Aliases().Load(m_directory.Write("etc/aliases", "info@example.org: al@away.example\n").c_str()));
    Drop("1.eml", "ann@example.org");
    Drop("2.eml", "ann@example.org,info@example.org");
    CLocalAgent agent;
    ASSERT_TRUE(agent.Start());
    EXPECT_TRUE(Becomes([&] { return CountIn("queue") == 1; })); // what came before does not wait for the answer
    EXPECT_TRUE(Becomes([&] { return names.Asked("_dmarc.far.example", CDnsServer::TXT) > 0; }));
    EXPECT_TRUE(agent.Stop());
    EXPECT_EQ(CountIn("queue") + CountIn("spool/ann"), 2u);
}

TEST_F(AgentTest, WaitsForNoScriptAfterAStopAndTouchesNothingOnceItIsGivenUp)
{
    const fs::path ran = Path("spool/ann/ran"), script = Path("spool/ann/newmail.cmd");
    m_directory.Write("spool/ann/newmail.cmd", "touch ran; while [ -e newmail.cmd ]; do sleep 0.05; done\n");
    fs::permissions(script, fs::perms::owner_all);
    Config().Set("Scripts.Execution.Parallel", "0");
    enum class EEnd { StopBeforeTheScript, Stop, GivenUp };
    for (const EEnd end : {EEnd::StopBeforeTheScript, EEnd::Stop, EEnd::GivenUp}) {
        const bool bGivenUp = end == EEnd::GivenUp;
        Drop("1.eml", "ann@example.org,bob@far.example");
        auto pAgent = std::make_unique<CLocalAgent>(m_pOutgoing);
        m_log.SetListener([&](const std::string& strLine) {
            if (end == EEnd::StopBeforeTheScript && strLine.ends_with("saved in <ann>"))
                pAgent->RequestStop();
        });
        ASSERT_TRUE(pAgent->Start() && Becomes([&] { return fs::exists(ran); }) && fs::remove(ran));
        EXPECT_TRUE(bGivenUp ? pAgent->Terminate() : pAgent->Stop());
        Bex::CThread::Destroy(std::move(pAgent));
        EXPECT_TRUE(Becomes([] { return !Bex::CThread::AnyAbandoned(); }));
        EXPECT_EQ(CountIn("queue"), 1u);
        if (!bGivenUp)
            RunAgentUntilQueueIsEmpty();                                            // of the rest
        EXPECT_EQ(CountIn("outgoing"), end == EEnd::StopBeforeTheScript ? 1u : 2u); // not of the last mail
        EXPECT_FALSE(fs::exists(ran));
    }
    fs::remove(script);
}

TEST_F(AgentTest, RemovesTheUnfinishedFilesOfACrash)
{
    m_directory.Write("outgoing/.2024.eml.err.tmp", "half"); // a report
    m_directory.Write("outgoing/.2026.eml.tmp", "half");
    m_directory.Write("outgoing/.other", "not ours");
    m_directory.Write("outgoing/.12-34.sender-told", ""); // of a mail that somebody took away
    const CToldMark mark(m_directory.Write("outgoing/1.eml", "mail").c_str(), CToldMark::EWho::Sender);
    mark.Set();
    const std::ofstream another(Path("outgoing/.2025.eml.tmp")); // another program's, and it takes no locks
    RunAgentUntil([this] { return !fs::exists(Path("outgoing/.2026.eml.tmp")); });
    EXPECT_TRUE(fs::exists(Path("outgoing/.other")));
    EXPECT_TRUE(fs::exists(Path("outgoing/.2025.eml.tmp")));
    EXPECT_TRUE(mark.IsSet() && !fs::exists(Path("outgoing/.12-34.sender-told")));
    EXPECT_FALSE(fs::exists(Path("outgoing/.2024.eml.err.tmp")));
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
    EXPECT_TRUE(m_log.Contains("couldn't load account config: " + Path("spool/.ann/config")));
}

/// One mail of the delivery below, and where its copies go.
struct SMail
{
    std::string strTo;
    std::map<std::string, size_t> copies; ///< by directory; none: the mail ends in the error directory
    std::string strHeader, strBody;
};

TEST_F(AgentTest, HandsOverTheDomainWithTheName)
{
    Drop("1.eml", "bob@Far.Example");
    RunAgentUntilQueueIsEmpty();
    const std::string strName = fs::directory_iterator(Path("outgoing"))->path().filename();
    Bex::CSimpleString strTaken;
    EXPECT_TRUE(m_pOutgoing->AddPending(strName) && m_pOutgoing->Take(strTaken));
    EXPECT_FALSE(m_pOutgoing->WantsDomain(strName));
}

/// On disks that order data before names, and on others.
class PowerCutTest : public AgentTest, public testing::WithParamInterface<bool>
{};
INSTANTIATE_TEST_SUITE_P(Disks, PowerCutTest, testing::Bool());

/// The outgoing and the error directory lie on a disk of their own. From some of the cuts the agent starts again.
TEST_P(PowerCutTest, LosesNoMailAtAnyStepAndSendsNoHalf)
{
    const bool bOrdered = GetParam();
    const Platform::CInjectedFault unknown(EFault::FileSystemType, 1, ENOSYS, bOrdered ? 0 : UINT_MAX);
    constexpr int WIDE = 40;
    constexpr size_t NTH_STARTS_AGAIN = 1999;
    const CTemporaryDirectory other;
    const std::vector<fs::path> roots{m_directory.Path(), other.Path()};
    const std::string strOutgoing = other / "outgoing", strError = other / "error", strAnn = Path("spool/ann");
    for (const std::string& strDirectory : {strOutgoing, strError})
        fs::create_directories(strDirectory);
    Config().Set("OutgoingDir", strOutgoing.c_str());
    Config().Set("ErrorDir", strError.c_str());
    m_directory.Write("etc/intercept_addresses", "eve@far.example\n");
    m_directory.Write("spool/ann/config", "Quota: 7\nNextUID: 8\n");
    const std::string strMaildir = Path("spool/ben/Maildir/new");
    m_directory.Write("spool/ben/config", "Maildir: 1\n");
    ASSERT_TRUE(Users().InitUsers());
    ASSERT_TRUE(Filters().Load(m_directory.Write("etc/filters", "spam\n").c_str()));
    std::string strMany;
    for (int n = 0; n < WIDE; ++n)
        strMany += "someone" + std::to_string(n) + "@far.example,";
    std::vector<SMail> mails{{strMany, {{strOutgoing, WIDE}}, "", ""},
                             {"ben@example.org", {{strMaildir, 1}}, "", ""}, // alone on its disk in the first group
                             {strMany + "ann@example.org", {{strAnn, 1}, {strOutgoing, WIDE}}, "", ""},
                             {"ann@example.org", {{strAnn, 1}}, "", ""},
                             {"ann@example.org,nobody@example.org", {}, "", ""},
                             {"eve@far.example,ann@example.org", {{strAnn, 1}, {strOutgoing, 1}}, "", ""},
                             {"ann@example.org", {{Path("filter"), 1}}, "Subject: spam\r\n", ""},
                             {"nobody@example.org", {}, "", ""}};
    for (size_t n = 0; n < mails.size(); ++n) {
        mails[n].strBody = "mail " + std::to_string(n) + std::string(6000, 'x') + "\r\nend\r\n";
        Drop(std::to_string(n) + ".eml", mails[n].strTo, mails[n].strHeader + "\r\n" + mails[n].strBody);
    }

    std::string strLost;
    const auto check = [&](const CPowerLossModel::Tree& tree, const std::string& strCut) {
        const auto IsWhole = [&](std::string_view content) {
            return std::any_of(mails.begin(), mails.end(), [&](auto& mail) { return content.ends_with(mail.strBody); });
        };
        const auto IsMail = [&](std::string_view path) {
            return path.ends_with(".eml") || path.starts_with(strMaildir);
        };
        for (const auto& [strPath, strContent] : tree)
            if (IsMail(strPath) && (bOrdered || strPath.starts_with(strOutgoing)) && !IsWhole(strContent))
                strLost = std::string(strPath) + " is cut " + strCut;
        const auto account = tree.find(strAnn + "/config");
        if (account == tree.end() || !account->second.starts_with("Quota: 7\nNextUID: "))
            strLost = "the account " + strCut;
        for (const SMail& mail : mails) {
            std::map<std::string, size_t> whole;
            for (const auto& [strPath, strContent] : tree)
                if (IsMail(strPath) && strContent.ends_with(mail.strBody))
                    ++whole[std::string(strPath.substr(0, strPath.rfind('/')))];
            const bool bStored =
                !mail.copies.empty() && std::all_of(mail.copies.begin(), mail.copies.end(),
                                                    [&](auto& place) { return whole[place.first] >= place.second; });
            if (strLost.empty() && !bStored && whole[Path("queue")] + whole[strError] == 0)
                strLost = mail.strBody.substr(0, 6) + " " + strCut;
        }
    };
    size_t nCuts = 0;
    std::vector<std::map<std::string, std::string>> survived;
    {
        const CPowerLossModel model(roots, [&](const CPowerLossModel::Tree& tree, const std::string& strCut) {
            check(tree, strCut);
            if (++nCuts % NTH_STARTS_AGAIN == 0)
                survived.emplace_back(tree.begin(), tree.end());
        });
        RunAgentUntilQueueIsEmpty();
    }
    EXPECT_EQ(strLost, "");
    EXPECT_GT(survived.size(), 2u); // of thousands of cuts
    for (const auto& files : survived) {
        for (const fs::path& root : roots)
            for (const auto& entry : fs::recursive_directory_iterator(root))
                if (entry.is_regular_file())
                    fs::remove(entry.path());
        for (const auto& [strPath, strContent] : files) {
            fs::create_directories(fs::path(strPath).parent_path());
            std::ofstream(strPath, std::ios::binary) << strContent;
        }
        RunAgentUntilQueueIsEmpty();
        CPowerLossModel(roots, check).Cut("started again");
        EXPECT_EQ(strLost, "");
    }
}
