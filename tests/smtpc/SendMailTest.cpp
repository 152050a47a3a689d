#include "CSendWorld.h"
#include "Platform/CAdvancedClock.h"
#include "support/CTlsWorld.h"

#include <gmock/gmock.h>

using Commands = std::vector<std::string>;
using Replies = CScriptedServer::Replies;

namespace {

const std::string OFFERS = "250-mx\r\n250-SIZE\r\n250 ";
const std::string EHLO = "EHLO me.example", MAIL = "MAIL From:<Ann@here.example> SIZE=97";
const std::string RCPT = "RCPT To:<Bob@far.example>";

} // namespace

TEST(SendMailTest, FollowsTheReply)
{
    const Replies TLS{{"EHLO", OFFERS + "STARTTLS\r\n"}};
    const Replies OLD{{"EHLO", "502 no\r\n"}};
    const struct
    {
        std::string strStage, strReply;
        int iVerdict;
        std::string strReported = ""; ///< what the report must hold
        Replies others = {};
    } CASES[] = {{"greeting", "421 busy\r\n", 9, "continuous fatal errors -----\r\nBob@far.example"},
                 {"greeting", "554 never\r\n", 19, "<<< 554 never\n"},
                 {"greeting", "250 what\r\n", 9},
                 {"HELO", "554 no\r\n", 9, ">>> HELO me.example\r\n", OLD},
                 {"STARTTLS", "454 no\r\n", 9, "<<< 454 no\n", TLS},
                 {"STARTTLS", "501 no\r\n", 19, "", TLS},
                 {"MAIL", "451 no\r\n", 9, "127.0.0.1:\r\n\r\n>>> MAIL From:<Ann@here.example> SIZE="},
                 {"MAIL", "251 odd\r\n", 19},
                 {"RCPT", "450-a\r\n450 b\r\n", 9, "<<< 450-a\n<<< 450 b\n"},
                 {"RCPT", "550 no\r\n", 19, ">>> RCPT To:<Bob@far.example>\r\n<<< 550 no\n"},
                 {"RCPT", "251 forwards\r\n", 0},
                 {"DATA", "451 no\r\n", 9},
                 {"DATA", "250 no\r\n", 19},
                 {"payload", "452 full\r\n", 9},
                 {"payload", "554 spam\r\n", 19},
                 {"QUIT", "554 no\r\n", 0},
                 {"QUIT", "drop", 0},
                 {"RCPT", "550 no\r\n", 19, "", {{"QUIT", "drop"}}},
                 {"greeting", "drop", 8, "\t(reason: the connection was aborted"},
                 {"STARTTLS", "last220 go\r\n", 8, "", TLS}, // never tried without TLS
                 {"payload", "drop", 8},
                 {"EHLO", "endlessx", 8},
                 {"EHLO", "hang", 8, "aborted due to timeout"},
                 {"RCPT", "last250", 8}};
    for (size_t n = 0; n < 2 * std::size(CASES); ++n) {
        const auto& tried = CASES[n / 2];
        SCOPED_TRACE(tried.strStage + ": " + tried.strReply);
        CSendWorld world;
        world.settings.bPipelining = n % 2 == 1; // which makes no difference
        world.settings.dwSessionLimit = tried.strReply == "hang" ? 1 : 10;
        Replies replies = tried.others;
        replies.try_emplace("EHLO", OFFERS + "PIPELINING\r\n");
        if (tried.strStage == "MAIL")
            replies["RCPT"] = "503 who sends that?\r\n";
        replies[tried.strStage] = tried.strReply;
        CScriptedServer server(replies);
        const EVerdict verdict = world.Send(server, "ann:secret@127.0.0.1:%t");
        EXPECT_EQ(static_cast<int>(verdict), tried.iVerdict);
        EXPECT_EQ(world.HasMail(), verdict != EVerdict::Delivered);
        EXPECT_TRUE(Holds(world.Report(), tried.strReported)) << world.Report();
        EXPECT_EQ(world.Report().empty(), verdict == EVerdict::Delivered);
        EXPECT_EQ(testing::Value(server.Commands(), testing::Contains("QUIT")), verdict != EVerdict::ConnectionFailed);
    }
}

TEST(SendMailTest, SendsToWhoeverOffersPipeliningWhateverComesOfIt)
{
    for (Replies wrong : {Replies{{"MAIL", "flush250 ok\r\n"}}, // and answers no more
                          Replies{{"MAIL", "last250 ok\r\n"}}, Replies{{"RCPT", "drop"}},
                          Replies{{"MAIL", "250 ok\r\n250 again\r\n"}}, Replies{{"RCPT", "503 who?\r\n"}},
                          Replies{{"DATA", "354 go on\r\n250 taken\r\n"}}, Replies{{"DATA", "250 what?\r\n"}}}) {
        SCOPED_TRACE(testing::PrintToString(wrong));
        CSendWorld world;
        world.settings.bPipelining = true;
        world.settings.dwTimeout = 1;
        wrong["EHLO"] = OFFERS + "PIPELINING\r\n";
        const Replies good{{"EHLO", wrong["EHLO"]}, {"MAIL", "250-o\r\n250 k\r\n"}};
        CScriptedServer server(wrong, good);
        EXPECT_EQ(world.Send(server), EVerdict::Delivered) << world.Report();
        const Commands commands = server.Commands();
        EXPECT_EQ(Commands(commands.end() - 5, commands.end()), (Commands{EHLO, MAIL, RCPT, "DATA", "QUIT"}));
        EXPECT_FALSE(world.Logged(" failed with "));
    }
}

TEST(SendMailTest, DeliversAndRemovesTheFiles)
{
    CSendWorld world;
    const std::string strText(20000, 'x');
    world.WriteMail(
        "X-Envelope-From: Ann@Here.example\r\nX-Envelope-To: Bob@Far.Example\r\nX-Authenticated-As: a b=c\r\n",
        strText);
    std::ofstream(world.Path() + ".err") << "of the last attempt";
    world.settings.bLowerRecipientDomain = true;
    CScriptedServer server(Replies{{"EHLO", OFFERS + "AUTH PLAIN\r\n"}});
    EXPECT_EQ(world.Send(server), EVerdict::Delivered);
    const std::string strPayload = "Message-ID: <1@here>\r\nFrom: <Ann@here.example>\r\nTo: <Bob@far.example>\r\n"
                                   "Date: today\r\nX-Authenticated-As: a b=c\r\n\r\n" +
                                   strText + "\r\n.\r\n";
    const std::string strSize = std::to_string(strPayload.size());
    EXPECT_EQ(server.Payload(), strPayload);
    EXPECT_EQ(server.Commands(), (Commands{EHLO, "MAIL From:<Ann@here.example> SIZE=" + strSize + " AUTH=a+20b+3dc",
                                           RCPT, "DATA", "QUIT"}));
    EXPECT_FALSE(world.HasMail());
    EXPECT_EQ(world.Report(), "");
    EXPECT_TRUE(world.Logged("6 mail <1@here> from <Ann@here.example> to <Bob@far.example> delivered, " + strSize +
                             " bytes sent"));
}

TEST(SendMailTest, FallsBackToHelloWithoutExtensions)
{
    CSendWorld world;
    CScriptedServer server(Replies{{"EHLO", "502 STARTTLS AUTH SIZE\r\n"}});
    EXPECT_EQ(world.Send(server, "ann:secret@127.0.0.1:%t"), EVerdict::Delivered);
    EXPECT_EQ(server.Commands(),
              (Commands{EHLO, "HELO me.example", "MAIL From:<Ann@here.example>", RCPT, "DATA", "QUIT"}));
}

TEST(SendMailTest, TriesTheTargetsInOrderUntilOneDecides)
{
    CSendWorld world;
    world.settings.iDebugLevel = 2;
    const std::string strLong = "450-" + std::string(30000, 'x') + "\r\n";
    CScriptedServer server(Replies{{"greeting", "drop"}}, Replies{{"MAIL", strLong + "450 " + strLong}},
                           Replies{{"greeting", "550-a\r\n550 no\r\n"}});
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(world.Send(server, "127.0.0.1:1i,127.0.0.1:%i,127.0.0.1:%i,127.0.0.1:%i,127.0.0.1:%i"),
              EVerdict::Permanent);
    const std::string strEchoed = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    EXPECT_LT(strEchoed.size(), 4000u) << strEchoed; // what a journal may get of it
    EXPECT_EQ(server.Commands(), (Commands{EHLO, MAIL, "QUIT", "QUIT"}));
    EXPECT_TRUE(world.Logged("3 mail <1@here> failed with socket error: the attempt to connect was rejected (in File"));
    EXPECT_TRUE(world.Logged("error: <<< 450 450-" + std::string(504, 'x')) && !world.Logged(std::string(509, 'x')));
    EXPECT_TRUE(world.Logged("3 mail <1@here> failed with permanent SMTP error: <<< 550 no"));
    EXPECT_FALSE(Holds(world.Report(), "450")); // of the session before
}

TEST(SendMailTest, TriesAgainWithoutTlsWhenTlsBreaks)
{
    CSendWorld world;
    const Replies broken{{"EHLO", OFFERS + "STARTTLS\r\n"},
                         {"STARTTLS", "last220 go\r\n250-mx\r\n250 AUTH PLAIN\r\n"}}; // as if told under TLS
    CScriptedServer server(broken, Replies{});
    EXPECT_EQ(world.Send(server), EVerdict::Delivered);
    EXPECT_EQ(server.Commands(), (Commands{EHLO, "STARTTLS", EHLO, MAIL, RCPT, "DATA", "QUIT"}));
}

TEST(SendMailTest, LearnsAnewUnderTls)
{
    CSendWorld world;
    CTlsWorld::Instance().Need("good");
    // The host offers what it has in clear only, and somebody between adds to its reply.
    CScriptedServer server(Replies{{"EHLO", OFFERS + "STARTTLS\r\n"}, {"STARTTLS", "220 go\r\n250 AUTH PLAIN\r\n"}});
    EXPECT_EQ(world.Send(server, "ann:secret@127.0.0.1:%t"), EVerdict::Delivered) << world.Report();
    EXPECT_EQ(server.Commands(), (Commands{EHLO, "STARTTLS", EHLO, MAIL, RCPT, "DATA", "QUIT"}));
    EXPECT_TRUE(world.Logged("5 connection to 127.0.0.1 secured"));
}

TEST(SendMailTest, ForgivesTheCertificateOfALoopbackPeerForThatSessionOnly)
{
    CSendWorld world;
    CTlsWorld::Instance().Need("good");
    const Replies starts{{"EHLO", OFFERS + "STARTTLS\r\n"}, {"STARTTLS", "220 go\r\n"}, {"MAIL", "450 later\r\n"}};
    CScriptedServer server(starts, Replies{{"tls", ""}});
    EXPECT_EQ(world.Send(server, "127.0.0.1:%,ann:secret@127.0.0.1:%s"), EVerdict::ConnectionFailed) << world.Report();
    EXPECT_EQ(server.Commands(), (Commands{EHLO, "STARTTLS", EHLO, MAIL, "QUIT"}));
}

TEST(SendMailTest, RefusesWhatCannotBeSent)
{
    CSendWorld world;
    CScriptedServer server(Replies{});
    world.Route(server);
    world.WriteMail("X-Envelope-From: ann@here..example\r\nX-Envelope-To: bob@far.example\r\n");
    EXPECT_EQ(world.Send(), EVerdict::Permanent);
    EXPECT_TRUE(Holds(world.Report(), "follows -----\r\nsender address <ann@here..example> has bad format"));
    world.WriteMail("X-Envelope-From: <>\r\nX-Envelope-To: \r\nTo: Bob <b ob@far.example>, c\r\n");
    EXPECT_EQ(world.Send(), EVerdict::Permanent);
    EXPECT_TRUE(world.Logged("permanent SMTP error: recipient address <b ob@far.example> has bad format"));
    std::filesystem::remove(world.Path());
    EXPECT_EQ(world.Send(), EVerdict::NotPrepared);
    EXPECT_TRUE(world.Logged("3 error: could not open file \"" + world.Path() + "\": 2"));
    EXPECT_EQ(server.Commands(), Commands{});
}

TEST(SendMailTest, SendsToTheFirstAddressWithoutAnEnvelope)
{
    CSendWorld world;
    CScriptedServer server(Replies{});
    world.Route(server);
    for (const char* pszTo :
         {"bob@far.example, Eve <eve@far.example>", "\"B, \\\" <b> Ob\" <bob@far.example>, Eve <e@x>"}) {
        world.WriteMail("X-Envelope-From: <>\r\nReturn-Path: <eve@far.example>\r\nTo: " + std::string(pszTo) + "\r\n");
        EXPECT_EQ(world.Send(), EVerdict::Delivered) << pszTo;
    }
    const Commands commands = server.Commands();
    EXPECT_EQ(std::count(commands.begin(), commands.end(), "RCPT To:<bob@far.example>"), 2);
    EXPECT_THAT(commands[1], testing::StartsWith("MAIL From:<> "));
}

TEST(SendMailTest, SendsUnderTheMask)
{
    CSendWorld world;
    Masquerading().Set("Ann@here.example", "office@here.example");
    world.WriteMail("X-Envelope-From: Ann@HERE.example\r\nX-Envelope-To: bob@far.example\r\nFrom: Ann <a@b>\r\n"
                    "sender: Ann@here.example\r\n");
    CScriptedServer server(Replies{});
    EXPECT_EQ(world.Send(server), EVerdict::Delivered);
    EXPECT_THAT(server.Commands(), testing::Contains(testing::HasSubstr("MAIL From:<office@here.example>")));
    EXPECT_TRUE(Holds(server.Payload(), "From: \"Ann\" <office@here.example>\r\n")) << server.Payload();
    EXPECT_TRUE(Holds(server.Payload(), "\r\nSender: <office@here.example>\r\n"));
}

TEST(SendMailTest, AsksForTheExchangesAndStopsAtTheFirstOneOfABackupDomain)
{
    CSendWorld world;
    CDnsServer dns;
    BackupDomains().Append("listed.test");
    BackupDomains().Append("Other.test");
    for (const std::string strDomain : {"listed.test", "other.test"}) {
        dns.Tell(strDomain, CDnsServer::MX,
                 {CDnsServer::Exchange(20, "b." + strDomain), CDnsServer::Exchange(10, "a." + strDomain)});
        world.WriteMail("X-Envelope-To: bob@" + strDomain + "\r\n");
        EXPECT_EQ(world.Send(), EVerdict::Temporary);
        EXPECT_EQ(dns.Asked("a." + strDomain, CDnsServer::A), 1);
        EXPECT_EQ(dns.Asked("b." + strDomain, CDnsServer::A), strDomain == "listed.test" ? 0 : 1) << strDomain;
    }
    BackupDomains().RemoveAll();
    EXPECT_TRUE(world.Logged("MX resolution for domain 'other.test' failed, no valid MX returned"));
    dns.Tell("null.test", CDnsServer::MX, {CDnsServer::Exchange(0, ".")});
    world.WriteMail("X-Envelope-To: bob@null.test\r\n");
    EXPECT_EQ(world.Send(), EVerdict::Permanent);
    EXPECT_TRUE(world.Logged("domain 'null.test' is not used for mail communication (NULL MX)"));
}

TEST(SendMailTest, ReachesALiveTargetBehindSilentOnes)
{
    CSendWorld world;
    world.settings.dwTimeout = 1; // for two of which an attempt begins another one
    CScriptedServer silent(Replies{{"greeting", "hang"}}), live(Replies{});
    const std::string strLive = "127.0.0.1:" + std::to_string(live.Port());
    const auto ui64Started = Platform::TickCount();
    EXPECT_EQ(world.Send(silent, "127.0.0.1:%,127.0.0.1:%,127.0.0.1:%," + strLive), EVerdict::ConnectionFailed);
    EXPECT_LT(Platform::TickCount() - ui64Started, 3000u);
    EXPECT_EQ(world.Send(), EVerdict::Delivered);
    EXPECT_LT(Platform::TickCount() - ui64Started, 3500u); // a mail to it alone still tries
    EXPECT_EQ(live.Commands().size(), 5u);
}

TEST(SendMailTest, SharesFortySecondsAmongAllThatAnAttemptResolves)
{
    CSendWorld world;
    world.settings.dwTimeout = 100;
    CDnsServer names;
    Platform::CAdvancedClock clock;
    names.OnAsked([&] { clock.Advance(11'000); });
    SmartHosts().Set("*", "a.test,b.test,c.test,d.test");
    EXPECT_EQ(world.Send(), EVerdict::Temporary);
    EXPECT_EQ(names.Asked("b.test", CDnsServer::A), 1);
    EXPECT_EQ(names.Asked("c.test", CDnsServer::CNAME), 0);
}

TEST(SendMailTest, StopsInTheMiddleOfASession)
{
    CSendWorld world;
    CScriptedServer server(Replies{{"RCPT", "hang"}});
    world.Route(server);
    CAttempt attempt(world.settings, world.Path());
    server.WaitFor("RCPT");
    EXPECT_TRUE(attempt.Stop()); // within a second
    EXPECT_EQ(attempt.Verdict(), EVerdict::Stopped);
    EXPECT_TRUE(world.HasMail());
}

TEST(SendMailTest, ShowsThePasswordToTheServerOnly)
{
    const std::string CHALLENGE = "334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+\r\n";
    const std::string MD5_ANSWER = "dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw"; // RFC 2195
    const std::string SHA1_ANSWER = "dGltIDE1NGM1YTYwMGUwMWFhMzA0ZjE0MzAyOTU2NzlmM2E0MzhmYzMzODQ=";
    const std::string PLAIN = "AUTH PLAIN AHRpbQB0YW5zdGFhZnRhbnN0YWFm";
    const auto authenticate = [](const std::string& strOffered, Replies replies, int iVerdict,
                                 const Commands& expected /* behind EHLO */) {
        SCOPED_TRACE(strOffered + testing::PrintToString(replies));
        CSendWorld world;
        world.settings.iDebugLevel = 2;
        replies["EHLO"] = OFFERS + "AUTH " + strOffered + "\r\n";
        CScriptedServer server(replies);
        server.SetPiece(11); // also where a piece of a reply ends in the middle of it
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(static_cast<int>(world.Send(server, "tim:tanstaaftanstaaf@127.0.0.1:%i")), iVerdict);
        const std::string strEchoed = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
        Commands commands = server.Commands();
        ASSERT_GT(commands.size(), expected.size());
        EXPECT_EQ(Commands(commands.begin() + 1, commands.begin() + 1 + std::ssize(expected)), expected);
        for (const char* pszSecret : {"tanstaaf", "dGltIG", "AHRpbQ", "dGFuc3"}) { // and as they are sent
            EXPECT_FALSE(Holds(strEchoed, pszSecret)) << strEchoed;
            EXPECT_FALSE(Holds(world.Report(), pszSecret)) << world.Report();
            EXPECT_FALSE(world.Logged(pszSecret));
        }
        EXPECT_TRUE(Holds(strEchoed, "********"));
    };
    authenticate("LOGIN PLAIN CRAM-MD5", {{"AUTH", CHALLENGE}}, 0, {"AUTH CRAM-MD5", MD5_ANSWER});
    authenticate("PLAIN CRAM-SHA1 CRAM-MD5", {{"AUTH", CHALLENGE}}, 0, {"AUTH CRAM-SHA1", SHA1_ANSWER});
    authenticate("CRAM-MD5", {{"AUTH", "330 " + CHALLENGE.substr(4)}, {"answer1", "535 " + MD5_ANSWER + "\r\n"}}, 19,
                 {"AUTH CRAM-MD5", MD5_ANSWER, "QUIT"});
    authenticate("PLAIN", {{"AUTH", "235 tanstaaftanstaaf is fine\r\n"}}, 0, {PLAIN});
    authenticate("LOGIN", {{"answer1", "334 UGFzc3dvcmQ6\r\n"}, {"answer2", "235 ok\r\n"}}, 0,
                 {"AUTH LOGIN", "dGlt", "dGFuc3RhYWZ0YW5zdGFhZg=="});
    authenticate("LOGIN PLAIN CRAM-MD5", {{"AUTH", "454 no\r\n"}}, 9, {"AUTH CRAM-MD5", PLAIN, "QUIT"});
    authenticate("LOGIN PLAIN", {{"AUTH", "454 no\r\n"}}, 9, {PLAIN, "AUTH LOGIN", "QUIT"});
    authenticate("PLAIN", {{"AUTH", "454 no\r\n"}}, 0, {PLAIN, MAIL});
    for (const std::string strMiddle : {"535-AHRpbQB0YW5zdGFhZnRhbnN0YWFm", "535-so\r\ntanstaaftanstaaf"})
        authenticate("PLAIN", {{"AUTH", strMiddle + "\r\n535 is no good\r\n"}}, 19, {PLAIN, "QUIT"});
}
