#include "Bex/CFile.h"
#include "Platform/CAdvancedClock.h"
#include "Platform/CCallWatcher.h"
#include "SMTPc/CWaitingConnections.h"
#include "SMTPc/FindTargets.h"
#include "Tobix/CRemoteAgent.h"
#include "Tobix/CSMTPDeliveryThread.h"

#include <gmock/gmock.h>

#include "smtpc/CSendWorld.h"
#include "support/Becomes.h"
#include "support/CTlsWorld.h"

#include <cerrno>
#include <thread>

using Replies = CScriptedServer::Replies;

namespace {

const std::string ENVELOPE = "X-Envelope-From: ann@here.example\r\nX-Envelope-To: bob@far.example\r\n";

/// A worker on the one mail of a small world.
class CDeliveryWorld : public CSendWorld
{
public:
    explicit CDeliveryWorld(unsigned nPerDomain = 0, bool bRoutes = false, unsigned nWait = 0)
        : m_pFiles(std::make_shared<COutgoingFiles>(nPerDomain, bRoutes)),
          m_pWaiting(std::make_shared<CWaitingConnections>(nWait))
    {
        std::filesystem::create_directory(ErrorDirectory());
    }
    ~CDeliveryWorld() { Config().RemoveAll(); }
    /// Until the log holds the text.
    void Deliver(
        const CScriptedServer& server, const std::string& strUntil, std::function<void()> Meanwhile = [] {})
    {
        Route(server);
        if (HasMail())
            m_pFiles->AddPending("x.eml");
        CSMTPDeliveryThread thread(settings, m_pFiles, ErrorDirectory().c_str(), Directory().c_str(), m_pWaiting);
        m_pThread = &thread;
        ASSERT_TRUE(thread.Start());
        Meanwhile();
        EXPECT_TRUE(Becomes([&] { return Logged(strUntil); })) << Log().Take();
        EXPECT_TRUE(thread.Stop());
    }
    /// With the agent, until both are asked to stop, as the daemon does. The server is held until they have.
    void Run(CScriptedServer& server, std::function<bool()> Until, bool bRelease = false)
    {
        Config().Set("OutgoingDir", Directory().c_str());
        Deliver(server, "started", [&] {
            CRemoteAgent agent(m_pFiles, m_pWaiting);
            EXPECT_TRUE(agent.Start());
            EXPECT_TRUE(Becomes(Until)) << Log().Take();
            Log().SetListener({});
            RequestStop();
            agent.RequestStop();
            if (bRelease)
                server.Release();
            EXPECT_TRUE(agent.Stop(LONGEST_STOP) && m_pThread->HasFinished(LONGEST_STOP));
            server.Release();
        });
    }
    void AddMail(const std::string& strName, const std::string& strDomain = "far.example",
                 const std::string& strBody = "more\r\n") ///< to carl
    {
        std::ofstream(Directory() / strName) << "X-Envelope-From: ann@here.example\r\nX-Envelope-To: carl@" << strDomain
                                             << "\r\nMessage-ID: <2@here>\r\n\r\n"
                                             << strBody;
        m_pFiles->AddPending(strName);
    }
    /// Mails to come, as going the way of that domain's.
    void Announce(std::initializer_list<const char*> names, const std::string& strDomain)
    {
        for (const char* pszName : names)
            m_pFiles->Announce(pszName, strDomain, RouteOf("ann@here.example", ("carl@" + strDomain).c_str()).View());
    }
    void RequestStop() { m_pThread->RequestStop(); }
    COutgoingFiles& Files() { return *m_pFiles; }
    void Restart() { m_pFiles = std::make_shared<COutgoingFiles>(); }
    const std::shared_ptr<CWaitingConnections>& Waiting() const { return m_pWaiting; }
    std::string Left() const
    {
        return std::string(std::filesystem::exists(Directory() / "y.eml") ? "y" : "") + (HasMail() ? "x" : "");
    }
    bool NameIsFree() { return m_pFiles->AddPending("x.eml"); }
    void FreeName() { m_pFiles->FinishDelivery("x.eml"); }
    bool Retries()
    {
        Bex::CSimpleString strName;
        m_pFiles->ReleaseRetries();
        return m_pFiles->Take(strName);
    }
    std::filesystem::path Directory() const { return std::filesystem::path(Path()).parent_path(); }
    std::filesystem::path ErrorDirectory() const { return Directory() / "error"; }

private:
    static constexpr unsigned LONGEST_STOP = 60'000; // milliseconds

    std::shared_ptr<COutgoingFiles> m_pFiles;
    std::shared_ptr<CWaitingConnections> m_pWaiting;
    Bex::CThread* m_pThread = nullptr;
};

/// Raises what nobody foresees, once, when a call on the mail file has succeeded.
struct CRaiser : Platform::CCallWatcher
{
    CRaiser(Platform::EFault kind, std::string strPath) : m_kind(kind), m_strPath(std::move(strPath)) {}
    void OnCall(const Platform::SCall& call) override
    {
        if (call.kind == m_kind && call.pszPath == m_strPath && !std::exchange(m_bRaised, true))
            throw std::runtime_error("no such luck");
    }
    Platform::EFault m_kind;
    std::string m_strPath;
    bool m_bRaised = false;
};

} // namespace

enum class EFate { Waits, Gone, InError };
struct SFate
{
    std::string strReply; ///< to RCPT
    const char* pszAutoTransTime;
    std::string strLogged;
    EFate fate;
    std::string strHeader = ENVELOPE;
    Platform::EFault raised = Platform::EFault::Link; ///< none such is made
};
TEST(DeliveryThreadTest, FollowsTheVerdict)
{
    for (const SFate& row :
         {SFate{"450 no\r\n", "120", "temporarily failed with error 9. I will retry later!", EFate::Waits},
          SFate{"drop", "120", "temporarily failed with error 8. I will", EFate::Waits},
          SFate{"450 no\r\n", "-1", "failed for -1 minutes with error 9. I am", EFate::Gone},
          SFate{"550 no\r\n", "120", "permanently failed with error 19. I am", EFate::Gone},
          SFate{"", "120", "failed with error 29, errno 0, winerr 0. Maybe malconfigured?", EFate::InError, ""},
          SFate{"", "120", "failed with error 29, errno 27, winerr 223. Maybe malconfigured?", EFate::InError,
                std::string(17 << 20, 'x') + "\r\n"},
          SFate{"", "120", "temporarily failed with error 9. I will", EFate::Waits, ENVELOPE, Platform::EFault::Open},
          SFate{"", "-1", "failed for -1 minutes with error 9. I am", EFate::Gone, ENVELOPE, Platform::EFault::Open}}) {
        SCOPED_TRACE(row.strLogged);
        CDeliveryWorld world;
        world.WriteMail(row.strHeader);
        std::ofstream(world.Path() + ".err") << "of the last attempt";
        CScriptedServer server(Replies{{"RCPT", row.strReply}});
        Config().Set("AutoTransTime", row.pszAutoTransTime);
        Config().Set("Bounce.Disable", "1");
        CRaiser raiser(row.raised, world.Path());
        world.Deliver(server, row.strLogged);
        EXPECT_EQ(world.HasMail(), row.fate == EFate::Waits);
        EXPECT_EQ(world.Report().empty(), row.fate != EFate::Waits);
        EXPECT_EQ(world.Report().ends_with("follows -----\r\nno such luck"), raiser.m_bRaised && world.HasMail());
        EXPECT_EQ(std::filesystem::exists(world.ErrorDirectory() / "x.eml"), row.fate == EFate::InError);
        EXPECT_EQ(world.Retries(), row.fate == EFate::Waits);
        EXPECT_EQ(world.NameIsFree(), row.fate != EFate::Waits);
        EXPECT_FALSE(world.Logged("SystemCall"));
    }
}

TEST(DeliveryThreadTest, NeverGivesUpAMailThatSomebodyElseHolds)
{
    CDeliveryWorld world;
    CScriptedServer server(Replies{});
    Config().Set("AutoTransTime", "-1");
    Config().Set("Bounce.Disable", "1");
    const Platform::CInjectedFault held(Platform::EFault::Lock, 1, EAGAIN);
    world.Deliver(server, "temporarily failed with error 1. I will retry later!");
    EXPECT_TRUE(world.HasMail() && world.Retries());
}

TEST(DeliveryThreadTest, GivesUpWhatIsOlderThanAutoTransTime)
{
    EXPECT_FALSE(CSMTPDeliveryThread::IsOverdue(120 * 60, 0, 120));
    EXPECT_TRUE(CSMTPDeliveryThread::IsOverdue(120 * 60 + 1, 0, 120));
    EXPECT_FALSE(CSMTPDeliveryThread::IsOverdue(-1, 0, 0));
    EXPECT_FALSE(CSMTPDeliveryThread::IsOverdue(INT32_MAX, 0, INT32_MAX));
    EXPECT_TRUE(CSMTPDeliveryThread::IsOverdue(-1, 120 * 60 + 1, 120)); // the time was set back
}

TEST(DeliveryThreadTest, SendsNoDeliveredFileAgainThatCannotBeRemoved)
{
    CDeliveryWorld world;
    CScriptedServer server(Replies{});
    {
        const Platform::CInjectedFault fault(Platform::EFault::Remove, 1, EBUSY, 10);
        world.Deliver(server, "successfully delivered mail from");
        EXPECT_TRUE(world.HasMail() && world.Retries());
        world.Restart();
        world.Deliver(server, "started",
                      [&] { EXPECT_TRUE(Becomes([&] { return world.Files().Counts().nWaiting; })); });
    }
    world.Restart();
    world.Deliver(server, "which was delivered before");
    EXPECT_FALSE(world.HasMail());
    EXPECT_EQ(std::ranges::count(server.Commands(), "DATA"), 1);
    EXPECT_TRUE(world.NameIsFree());
    world.WriteMail(ENVELOPE);
    world.Log().Take();
    const CRaiser raiser(Platform::EFault::Remove, world.Path());
    world.Deliver(server, "successfully delivered mail from");
    EXPECT_TRUE(world.Logged("exception after successful delivery of"));
    EXPECT_FALSE(world.Retries());
}

TEST(DeliveryThreadTest, TriesAgainWhatRaisesWhenItIsGivenUp)
{
    CDeliveryWorld world;
    CScriptedServer server(Replies{{"RCPT", "550 no\r\n"}});
    const Platform::CInjectedFault shortage(Platform::EFault::CreateProcess, 1, EAGAIN);
    world.Deliver(server, "delivering \"" + world.Path() + "\": CSystemException");
    EXPECT_TRUE(world.Retries());
    world.FreeName();
    Config().Set("Bounce.Disable", "1");
    const CRaiser raiser(Platform::EFault::Remove, world.Path());
    world.Deliver(server, "delivering \"" + world.Path() + "\": no such luck");
    EXPECT_TRUE(world.Retries());
}

TEST(DeliveryThreadTest, StartsNoResponderAfterAStop)
{
    CDeliveryWorld world;
    CScriptedServer server(Replies{{"RCPT", "550 no\r\n"}});
    world.Log().SetListener([&](const std::string& strLine) {
        if (Holds(strLine, "permanently failed"))
            world.RequestStop();
    });
    world.Deliver(server, ") stopped");
    EXPECT_TRUE(world.HasMail() && !world.Logged("SystemCall"));
}

TEST(DeliveryThreadTest, LeavesNoReportOfAMailThatWentMeanwhile)
{
    CDeliveryWorld world;
    CScriptedServer server(Replies{{"RCPT", "450 no\r\n"}});
    world.Log().SetListener([&](const std::string& strLine) {
        if (Holds(strLine, "connection to 127.0.0.1 established"))
            std::filesystem::remove(world.Path());
    });
    world.Deliver(server, "temporarily failed with error 9. I will");
    EXPECT_EQ(world.Report(), "");
    EXPECT_TRUE(world.NameIsFree());
}

struct STakeover
{
    std::string strHeader;
    std::string strReply; ///< to RCPT
    std::vector<std::string> moments;
};
TEST(DeliveryThreadTest, SendsWhatGetsTheNameOfAMailWhileThatOneLeaves)
{
    for (STakeover row : {STakeover{ENVELOPE,
                                    "250 ok\r\n", // then before and after the removal
                                    {"connection to 127.0.0.1 established", "socket error after successful delivery"}},
                          STakeover{ENVELOPE, "450 no\r\n", {"connection to 127.0.0.1 established"}},
                          STakeover{ENVELOPE, "550 no\r\n", {"permanently failed with error 19"}},
                          STakeover{ENVELOPE, "550 no\r\n", {"SystemCall( "}}, // of the first of two
                          STakeover{"", "250 ok\r\n", {"Maybe malconfigured?"}}}) {
        SCOPED_TRACE(row.moments.front());
        CDeliveryWorld world;
        world.WriteMail(row.strHeader);
        std::filesystem::remove(world.ErrorDirectory());
        CScriptedServer server(Replies{{"RCPT", row.strReply}}, Replies{{"QUIT", "drop"}});
        Config().Set("Postmaster", "pm@here.example");
        const bool bOneRun = row.moments.front() == "SystemCall( ";
        world.Log().SetListener([&](const std::string& strLine) {
            if (row.moments.empty() || !Holds(strLine, row.moments.front()))
                return;
            row.moments.erase(row.moments.begin());
            world.WriteMail("X-Envelope-To: new" + std::to_string(row.moments.size()) + "@far.example\r\n");
        });
        world.Deliver(server, "successfully delivered mail from <> to <new0@far.example>");
        EXPECT_FALSE(world.HasMail());
        EXPECT_EQ(world.Report(), "");
        EXPECT_EQ(world.Logged("SystemCall"), bOneRun);
        EXPECT_FALSE(world.Logged("-to pm@here.example"));
        EXPECT_TRUE(world.NameIsFree());
    }
}

TEST(DeliveryThreadTest, KeepsAMailFromOtherDaemonsAndSendsItOnceIfItIsTouched)
{
    CDeliveryWorld world;
    CScriptedServer server(Replies{});
    world.Log().SetListener([&](const std::string& strLine) {
        if (!Holds(strLine, "connection to 127.0.0.1 established"))
            return;
        std::filesystem::last_write_time(world.Path(), std::filesystem::file_time_type::clock::now());
        CMail mail;
        CHeldMailFile file;
        EXPECT_EQ(mail.Load(world.Path().c_str(), file).result, ELoadResult::Busy);
    });
    world.Deliver(server, "successfully delivered mail from");
    EXPECT_FALSE(world.HasMail());
}

TEST(DeliveryThreadTest, LooksForTheDomainOnceAndHoldsTheMailBackWhileEnoughThreadsAreThere)
{
    CDeliveryWorld world(1);
    CScriptedServer server(Replies{});
    Bex::CSimpleString strOther;
    world.Files().AddPending("y.eml");
    EXPECT_TRUE(world.Files().Take(strOther) && world.Files().EnterDomain("y.eml", "far.example"));
    world.Deliver(server, "successfully delivered mail from", [&] {
        EXPECT_TRUE(Becomes([&] { return !world.Files().WantsDomain("x.eml"); }));
        EXPECT_TRUE(world.Files().HasPending());
        world.Files().FinishDelivery("y.eml");
    });
}

TEST(DeliveryThreadTest, KeepsARefusedFileThatCannotBeBouncedNorMovedOutOfFurtherPasses)
{
    CDeliveryWorld world(1);
    CScriptedServer server(Replies{{"RCPT", "550 no\r\n"}});
    Config().Set("Bounce.Disable", "1");
    const Platform::CInjectedFault fault(Platform::EFault::Remove, 1, EBUSY, 10);
    std::filesystem::remove(world.ErrorDirectory());
    world.Deliver(server, "could not rename file \"");
    EXPECT_TRUE(world.HasMail());
    EXPECT_FALSE(world.NameIsFree());
    Bex::CSimpleString strNext; // its domain is free for it
    world.Files().AddPending("y.eml");
    EXPECT_TRUE(world.Files().Take(strNext) && world.Files().EnterDomain("y.eml", "far.example"));
}

/// The first one of each command, S for RSET.
std::string Letters(CScriptedServer& server)
{
    std::string strLetters;
    for (const std::string& strCommand : server.Commands())
        strLetters += strCommand.starts_with("RS") ? 'S' : strCommand[0];
    return strLetters;
}

std::string Entry(const CScriptedServer& server) { return "127.0.0.1:" + std::to_string(server.Port()) + "i"; }

struct SSecond
{
    Replies first;                ///< of the connection that both mails may share
    std::string strOneByOne;      ///< the commands by their first letters, of all connections; empty: not tried
    std::string strTogether = ""; ///< likewise, with pipelining; empty: the same
    std::string strLogged = "to <Bob@far.example> (";
};
TEST(DeliveryThreadTest, GoesOnWithTheNextMailOfTheWayOverOneConnection)
{
    // A server that is closed on may have read the rest of what was sent together, or not.
    const std::string BOTH = "EMRDMRDQ", AFRESH = "EMRDM?R?D?EMRDQ";
    const SSecond ROWS[] = {{{}, BOTH},
                            {{{"payload1", "late250 taken\r\n"}}, "", BOTH},
                            {{{"RCPT1", "550 no\r\n"}}, "EMRSMRDQ", "EMRDSMRDQ"},
                            {{{"payload1", "554 spam\r\n"}}, "EMRDSMRDQ", BOTH},
                            {{{"MAIL2", "drop"}}, "EMRDMEMRDQ"},
                            {{{"MAIL2", "421 enough\r\n"}}, "EMRDMEMRDQ", AFRESH},
                            {{{"MAIL2", "450 enough\r\n"}}, "EMRDMEMRDQ", AFRESH},
                            {{{"MAIL2", "554 enough\r\n"}}, "EMRDMEMRDQ", AFRESH},
                            {{{"payload1", "421 alone\r\n"}}, "EMRDQEMRDQ", AFRESH},
                            {{{"MAIL2", "503 what\r\n"}}, "EMRDMEMRDQ", AFRESH},
                            {{{"EHLO", "250-mx\r\n250 STARTTLS\r\n"}, {"STARTTLS", "drop"}}, "ESEMRDQEMRDQ"},
                            {{{"payload1", "last250 bye\r\n"}}, "EMRDEMRDQ"},
                            {{{"payload1", "250 taken\r\n250 taken again\r\n"}}, BOTH, AFRESH},
                            {{{"RCPT1", "550 no\r\n"}, {"RSET", "502 what\r\n"}}, "EMRSEMRDQ", "EMRDSM?R?D?EMRDQ"},
                            {{{"RCPT1", "421 no\r\n"}}, "EMRQEMRDQ", "EMRDQEMRDQ"}, // on a connection that ends
                            {{{"DATA2", "250 to the command before\r\n"}}, AFRESH},
                            {{{"payload2", "drop"}}, AFRESH}, // without TLS, as ever
                            {{{"RCPT2", "450 later\r\n"}}, "EMRDMRQ", BOTH, "temporarily failed with error 9"},
                            {{{"RCPT2", "550 never\r\n"}}, "EMRDMRQ", BOTH, "permanently failed with error 19"}};
    for (size_t n = 0; n < 2 * std::size(ROWS); ++n) {
        const SSecond& row = ROWS[n / 2];
        const bool bTogether = n % 2 == 1;
        if (!bTogether && row.strOneByOne.empty())
            continue;
        SCOPED_TRACE(testing::PrintToString(row.first) + (bTogether ? " together" : ""));
        CDeliveryWorld world(1, true);
        world.settings.nMailsPerConnection = 2;
        world.settings.bPipelining = bTogether;
        Replies first = row.first;
        Replies second{{"EHLO", "250-mx\r\n250 PIPELINING\r\n"}};
        first.insert(second.begin(), second.end());
        for (const auto& [pszMoment, pszAnswer] : {std::pair("MAIL2", "503"), {"payload1", "421"}}) {
            if (bTogether && first.contains(pszMoment) && first.at(pszMoment).starts_with(pszAnswer))
                second["MAIL"] = "flush250 ok\r\n"; // who loses what comes behind a text is asked one by one
        }
        CScriptedServer server(first, second);
        Config().Set("Bounce.Disable", "1");
        world.AddMail("y.eml");
        world.Deliver(server, row.strLogged);
        EXPECT_THAT(Letters(server),
                    testing::MatchesRegex(bTogether && !row.strTogether.empty() ? row.strTogether : row.strOneByOne));
        EXPECT_FALSE(Holds(world.Report(), "carl") || Holds(world.Report(), "RSET")) << world.Report();
    }
}

struct SMoment
{
    std::string strAt;   ///< where the first connection is held, or a line of the log, or a connection that "waits"
    const char* pszLeft; ///< of the mails y and x, in this order, when the stop that comes then is over
    Replies first = {};  ///< of that connection
    std::string strAfter = ""; ///< is answered once the threads have ended, or were asked to and wait for a last word
};
TEST(DeliveryThreadTest, StopsAtEveryMomentOfASharedConnection)
{
    const Replies LATER{{"RCPT1", "450 later\r\n"}}, SECURE{{"EHLO", "250-mx\r\n250 STARTTLS\r\n"}};
    const SMoment MOMENTS[] = {{"greeting", "yx"},
                               {"EHLO", "yx"},
                               {"STARTTLS", "yx", SECURE},
                               {"MAIL1", "yx"},
                               {"RCPT1", "yx"},
                               {"DATA1", "yx"},
                               {"text1", "yx"},
                               {"payload1", "x"},
                               {"payload1", "yx", {}, "drop"},
                               {"DATA1", "yx", LATER},
                               {"RSET", "yx", LATER},
                               {"removing file", "x"},
                               {"successfully delivered mail", "x"},
                               {"MAIL2", "x"},
                               {"RCPT2", "x"},
                               {"DATA2", "x"},
                               {"text2", "x"},
                               {"payload2", ""},
                               {"payload2", "x", {}, "drop"},
                               {"QUIT", ""},
                               {"waits", ""}};
    for (size_t n = 0; n < 2 * std::size(MOMENTS); ++n) {
        const SMoment& row = MOMENTS[n / 2];
        const bool bWaits = row.strAt == "waits";
        SCOPED_TRACE(row.strAt + row.strAfter + std::to_string(n));
        CDeliveryWorld world(1, true, bWaits ? 3600 : 0);
        world.settings.nMailsPerConnection = 3;
        world.settings.bPipelining = n % 2 == 1;
        Config().Set("TimeOut", "1200"); // which nobody waits out
        Replies first = row.first;
        first.insert({row.strAt, "held" + row.strAfter});
        first.insert({"EHLO", "250-mx\r\n250 PIPELINING\r\n"});
        CScriptedServer server(first, Replies{});
        const std::string strBody(row.strAt.starts_with("text") ? 24 << 20 : 1, 'x'); // more than sockets hold
        world.WriteMail(ENVELOPE, strBody);
        world.AddMail("y.eml", "far.example", strBody);
        world.Log().SetListener([&](const std::string& strLine) {
            if (Holds(strLine, row.strAt))
                world.RequestStop();
        });
        const auto IsThere = [&] { return server.IsHeld() || world.Logged(row.strAt) || world.Waiting()->Count() > 0; };
        world.Run(server, IsThere, row.strAt.starts_with("payload"));
        EXPECT_EQ(world.Left(), row.pszLeft);
        EXPECT_TRUE(row.first.contains("RCPT1") || !world.Logged("retry later"));
        const bool bParts = !server.IsHeld() && (bWaits || !world.settings.bPipelining); // else in the middle of a mail
        EXPECT_TRUE(!bParts || Becomes([&] { return server.Commands().back() == "QUIT"; }));
        world.Restart();
        world.Run(server, [&] { return world.Left().empty(); });
        EXPECT_THAT(server.Taken(),
                    testing::UnorderedElementsAre(testing::HasSubstr("carl"), testing::HasSubstr("bob")));
        EXPECT_TRUE(std::filesystem::is_empty(world.ErrorDirectory()));
        EXPECT_FALSE(world.Logged("SystemCall") || world.Logged("giving up"));
    }
}

struct SWorthless
{
    const char* pszCertificate;        ///< of the connections after the first one; empty: the same
    unsigned nMails;                   ///< that may share a connection
    Replies first = {};                ///< of the first connection
    const char* pszHost = "good.test"; ///< that the last mail is for; the others are for good.test, at the same place
};
TEST(DeliveryThreadTest, ChecksTheCertificateOfEveryConnectionThatMailsShare)
{
    for (const char* pszName : {"good", "older", "strange"})
        CTlsWorld::Instance().Need(pszName);
    CDnsServer names;
    for (const char* pszHost : {"good.test", "older.test"})
        names.Tell(pszHost, CDnsServer::A, {CDnsServer::IPv4("127.0.0.1")});
    for (SWorthless row : {SWorthless{"older.test", 2},
                           {"older.test", 3, {{"MAIL3", "drop"}}},
                           {"strange", 3, {{"payload2", "last250 bye\r\n"}}},
                           {"", 3, {}, "older.test"}}) {
        SCOPED_TRACE(row.pszCertificate + testing::PrintToString(row.first));
        const std::string strOffer = "250-mx\r\n250 PIPELINING\r\n";
        row.first.insert({{"tls", ""}, {"EHLO", strOffer}});
        std::string strAlone;
        for (const auto& [nMails, bTogether] : {std::pair(1u, false), {row.nMails, false}, {row.nMails, true}}) {
            CDeliveryWorld world(0, true);
            world.settings.nMailsPerConnection = nMails;
            world.settings.bPipelining = bTogether;
            CScriptedServer server(row.first, Replies{{"tls", row.pszCertificate}, {"EHLO", strOffer}});
            world.Route(server, "ann:secret@good.test:%s", "near.example");
            world.Route(server, "ann:secret@" + std::string(row.pszHost) + ":%s", "far.example");
            world.Announce({"y.eml", "z.eml", "x.eml"}, "near.example"); // which the table may have overtaken
            world.AddMail("y.eml", "near.example");
            if (nMails > 1)
                world.AddMail("z.eml", "near.example");
            world.Deliver(server, "x.eml\" temporarily failed with error 8. I will retry later!");
            std::string strTold = world.Report();
            for (const std::string& strLine : world.Log().Lines())
                strTold += strLine.starts_with("3 ") ? "\n" + strLine : "";
            strTold.erase(strTold.find(world.Directory().string()), world.Directory().string().size());
            strAlone = nMails == 1 ? strTold : strAlone;
            EXPECT_EQ(strTold, strAlone);
            EXPECT_TRUE(Holds(strTold, "failed with security error: ")) << strTold;
            EXPECT_THAT(server.Commands(), testing::Not(testing::Contains(testing::HasSubstr("Bob"))));
            for (const char* pszSent : {"y.eml", "z.eml"})
                EXPECT_FALSE(std::filesystem::exists(world.Directory() / pszSent));
        }
    }
}

TEST(DeliveryThreadTest, GivesOtherDomainsTheirTurnAfterSoManyMailsInARow)
{
    const std::pair<const char*, const char*> ROWS[] = {{"250 taken\r\n", "EFFFENEFFFEFFF"},
                                                        {"last250 bye\r\n", "EFEFEFENEFEFEFEFEFEF"}};
    for (size_t n = 0; n < 2 * std::size(ROWS); ++n) {
        const auto& [pszVerdict, pszExpected] = ROWS[n / 2];
        SCOPED_TRACE(std::to_string(n) + pszVerdict);
        CDeliveryWorld world(0, true);
        world.settings.nMailsPerConnection = 3;
        world.settings.bPipelining = n % 2 == 1;
        CScriptedServer server(Replies{{"EHLO", "250-mx\r\n250 PIPELINING\r\n"}, {"payload", pszVerdict}});
        world.Route(server, "127.0.0.1:%", "far.example");
        world.Route(server, "127.0.0.1:%i", "near.example");
        world.Announce({"0", "2", "3", "4", "5", "6", "7", "8"}, "far.example");
        world.Announce({"1"}, "near.example");
        for (const std::string strName : {"0", "1", "2", "3", "4", "5", "6", "7", "8"})
            world.AddMail(strName, strName == "1" ? "near.example" : "far.example");
        world.Deliver(server, "to <Bob@far.example> (");
        std::string strOrder;
        for (const std::string& strCommand : server.Commands()) {
            if (strCommand.starts_with("EHLO"))
                strOrder += 'E';
            else if (strCommand.starts_with("RCPT"))
                strOrder += Holds(strCommand, "@near") ? 'N' : 'F';
        }
        EXPECT_EQ(strOrder, pszExpected);
    }
}

TEST(DeliveryThreadTest, LetsAConnectionWaitForALaterMailAndEndsItInTime)
{
    for (const bool bTogether : {false, true}) {
        CDeliveryWorld world(0, true, 30);
        world.settings.nMailsPerConnection = 3;
        world.settings.bPipelining = bTogether;
        CScriptedServer server(Replies{{"EHLO", "250 PIPELINING\r\n"}});
        for (const size_t nCommands : {4u, 7u, 15u}) {
            world.WriteMail();
            if (nCommands == 15) // one more than the connection may carry
                world.AddMail("y.eml");
            world.Deliver(server, "to <Bob@far.example> (", [&] {
                EXPECT_TRUE(
                    Becomes([&] { return server.Commands().size() == nCommands && world.Waiting()->Count() == 1; }));
            });
        }
        Platform::CAdvancedClock clock;
        clock.Advance(29'000);
        world.Waiting()->EndOld();
        EXPECT_EQ(server.Commands().size(), 15u);
        clock.Advance(1'000);
        EXPECT_TRUE(Becomes([&] {
            world.Waiting()->EndOld();
            return world.Waiting()->Count() == 0;
        }));
        EXPECT_EQ(server.Commands().back(), "QUIT");
    }
}

struct SBackup
{
    Replies first;         ///< of the first target's first connection
    const char* pszFirst;  ///< the commands there, of two mails that go the same way
    const char* pszBackup; ///< and at the other one
    unsigned nWait = 0;
};
TEST(DeliveryThreadTest, SharesABackupUnlessTheFirstTargetRefusedForNow)
{
    const SBackup ROWS[] = {{{{"greeting", "drop"}}, "", "EMRDMRDQ"},
                            {{{"RCPT", "450 later\r\n"}}, "EMRD?QEMRDQ", "EMRDQ"},
                            {{{"RCPT1", "450 later\r\n"}}, "EMRD?SMRDQ?", "EMRDQ", 30}};
    for (size_t n = 0; n < 2 * std::size(ROWS); ++n) {
        SBackup row = ROWS[n / 2];
        SCOPED_TRACE(n);
        const Replies good{{"EHLO", "250 PIPELINING\r\n"}};
        row.first.insert(good.begin(), good.end());
        CScriptedServer first(row.first, good), backup(good);
        CDeliveryWorld world(1, true, row.nWait);
        world.settings.nMailsPerConnection = 3;
        world.settings.bPipelining = n % 2 == 1;
        world.Route(first, Entry(first) + "," + Entry(backup), "far.example");
        world.AddMail("y.eml");
        world.Deliver(first, "to <Bob@far.example> (");
        EXPECT_THAT(Letters(first), testing::MatchesRegex(row.pszFirst));
        EXPECT_EQ(Letters(backup), row.pszBackup);
    }
}

TEST(DeliveryThreadTest, TakesAWaitingConnectionWhereverAMailTurns)
{
    const std::string strOffer = "250 PIPELINING\r\n";
    CScriptedServer first(Replies{{"EHLO", strOffer}, {"RCPT2", "450 later\r\n"}, {"payload3", "drop"}});
    CScriptedServer second(Replies{{"EHLO", strOffer}});
    CDeliveryWorld world(0, true, 30);
    world.settings.nMailsPerConnection = 4;
    world.settings.bPipelining = true;
    const auto Deliver = [&](const std::string& strEntries, CScriptedServer& last, const std::string& strLetters,
                             size_t nWaiting) {
        world.WriteMail();
        world.Route(last, strEntries, "far.example");
        world.Deliver(last, "started", [&] {
            EXPECT_TRUE(Becomes([&] {
                return !world.HasMail() && world.Waiting()->Count() == nWaiting && Letters(last) == strLetters;
            })) << Letters(last);
        });
    };
    Deliver(Entry(first), first, "EMRD", 1);
    Deliver(Entry(second), second, "EMRD", 2);
    Deliver(Entry(first) + "," + Entry(second), second, "EMRDMRDQ", 1); // the first one refuses
    Deliver(Entry(second), second, "EMRDMRDQEMRD", 2);
    world.AddMail("y.eml");
    world.Log().SetListener([&](const std::string& strLine) { // the mail that is told of behind the one that fails
        if (Holds(strLine, "failed with socket error"))
            world.Route(second, Entry(second), "far.example");
    });
    Deliver(Entry(first), first, "EMRDMRDSMRD", 1);
    EXPECT_EQ(Letters(second), "EMRDMRDQEMRDMRD");
}

TEST(DeliveryThreadTest, KeepsNoConnectionThatItsServerHasClosed)
{
    CDeliveryWorld world(0, true, 30);
    world.settings.nMailsPerConnection = 2;
    CScriptedServer server(Replies{{"payload", "last250 taken\r\n"}});
    world.Deliver(server, "to <Bob@far.example> (",
                  [&] { EXPECT_TRUE(Becomes([&] { return world.Waiting()->Count() == 1; })); });
    CRemoteAgent agent(nullptr, world.Waiting());
    const std::jthread resting([&] { agent.Rest(300'000); });
    EXPECT_TRUE(Becomes([&] { return world.Waiting()->Count() == 0; }));
    agent.RequestStop();
}
