#include "Common/CHeldMailFile.h"
#include "Platform/CCallWatcher.h"
#include "Responder/AnsweredMail.h"
#include "Responder/Notification.h"
#include "Responder/SFailure.h"
#include "support/CTemporaryDirectory.h"

#include <gtest/gtest.h>

TEST(ReportTest, TellsProgramsWhyTheMailCameBack)
{
    const std::string TRANSCRIPT = "\r\n\t----- Transcript of session follows -----\r\n";
    const struct
    {
        std::string strErrors;
        std::string strTranscript; ///< with what stands before it
        std::string strStatus;
        std::string strDiagnostic; ///< with its type
    } CASES[] = {
        {"permanent", TRANSCRIPT + "<<< 450 wait\n>>> RCPT\r\n<<< 250 ok\n<<< 554 5.7 no\n", "5.0.0",
         "smtp; 554 5.7 no"},
        {"continuous", TRANSCRIPT + "<<< 451 later\n", "4.4.7", "smtp; 451 later"},
        {"continuous", TRANSCRIPT + "<<< 452 4.2.2 full\n", "4.2.2", "smtp; 452 4.2.2 full"},
        {"permanent", "\t(reason: rejected)\r\n" + TRANSCRIPT + "rejected\r\n", "4.4.7", "x-transport; rejected"},
        {"permanent", TRANSCRIPT + "'x' is not used for mail communication (NULL MX)", "5.1.10",
         "x-transport; 'x' is not used for mail communication (NULL MX)"},
        {"permanent", "", "5.0.0", "x-transport; "}};
    for (const auto& tried : CASES) {
        const SFailure failure =
            SFailure::FromReport("\t----- The following addresses had " + tried.strErrors +
                                 " fatal errors -----\r\neve@far.example\r\n" + tried.strTranscript);
        EXPECT_EQ(failure.strRecipient, "eve@far.example");
        EXPECT_EQ(failure.strStatus, tried.strStatus);
        EXPECT_EQ(failure.strDiagnosticType + "; " + failure.strDiagnostic, tried.strDiagnostic);
    }
}

TEST(CommandTest, MeansNothingUnlessItIsOfOneOfTheForms)
{
    using Arguments = std::vector<std::string_view>;
    for (const Arguments& arguments : {Arguments{},
                                       {"m"},
                                       {"m", "-t", "x"},
                                       {"m", "-o"},
                                       {"-t", "x", "-o"},
                                       {"m", "-t", "x", "-o", "y", "z"},
                                       {"m", "-t", "x", "-b", "some", "-o"},
                                       {"m", "-x", "-t", "x", "-o"},
                                       {"m", "-t", "x", "-to", "-o"}})
        EXPECT_FALSE(SCommand::Parse(arguments)) << testing::PrintToString(arguments);
    const auto command = SCommand::Parse({"m", "-t", "x", "-to", "a", "b", "-k", "-o"});
    EXPECT_TRUE(command && command->strTo == "a b" && command->bKeep && !command->bSilent && command->IsBounce());
}

TEST(AnsweredMailTest, KnowsProgramsFromPeople)
{
    for (const char* pszRobot :
         {"", "MAILER-DAEMON@x", "no-reply@x", "noreply-1@x", "owner-l@x", "l-Request@x", "l-bounces+a=b@x"})
        EXPECT_TRUE(IsRobotSender(pszRobot)) << pszRobot;
    for (const char* pszPerson : {"ann@x", "owner@x", "request@x", "replyno@noreply-x", "bouncer@x"})
        EXPECT_FALSE(IsRobotSender(pszPerson)) << pszPerson;
    const auto isAutomatic = [](const char* pszLine) {
        CMail mail;
        mail.ParseHeaderLine(pszLine);
        return IsAutomatic(mail);
    };
    for (const char* pszLine : {"Precedence: list", "Precedence: Junk", "List-Id: <l.x>", "list-unsubscribe: <x>",
                                "X-Loop: x", "Auto-Submitted: auto-generated", "X-Auto-Response-Suppress: OOF",
                                "X-Spam-Flag: YES", "Content-Type: multipart/report; boundary=b"})
        EXPECT_TRUE(isAutomatic(pszLine)) << pszLine;
    for (const char* pszLine :
         {"Auto-Submitted: no (really)", "X-Auto-Response-Suppress: None", "X-Spam-Flag: no", "Listed: yes"})
        EXPECT_FALSE(isAutomatic(pszLine)) << pszLine;
}

/// While the notification gets its name, another mail takes the returned one's.
struct CTakeover : Platform::CCallWatcher
{
    explicit CTakeover(const CTemporaryDirectory& world) : m_world(world) {}
    void OnCall(const Platform::SCall& call) override
    {
        if (call.pszTo != nullptr && std::string_view(call.pszTo).find("/b_") != std::string_view::npos)
            std::filesystem::rename(m_world / "new.eml", m_world / "x.eml");
    }
    const CTemporaryDirectory& m_world;
};

TEST(NotificationTest, KeepsOthersFromTheMailAndLeavesOneThatGetsItsName)
{
    const CTemporaryDirectory world;
    const std::string strMail = world.Write("x.eml", "X-Envelope-From: bob@far.example\r\n\r\n");
    world.Write("new.eml", "another");
    setenv("TOBIX_CONFIG", world.Write("tobix.cfg", "QueueDir: " + world.Path().string() + "\n").c_str(), 1);
    {
        Bex::CFile file;
        LoadMail(strMail.c_str(), true, file);
        CHeldMailFile other;
        EXPECT_EQ(CMail().Load(strMail.c_str(), other).result, ELoadResult::Busy);
    }
    const CTakeover takeover(world);
    const auto command = SCommand::Parse({strMail, "-t", "none", "-s", "-o"});
    EXPECT_STREQ(NotifySender(*command), "notification queued");
    EXPECT_EQ(world.Read("x.eml"), "another");
    EXPECT_EQ(world.Names().size(), 3u); // no mark
}
