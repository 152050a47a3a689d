#include "Platform/Clock.h"
#include "Platform/FaultInjection.h"
#include "Tobix/CSMTPDeliveryThread.h"
#include "smtpc/CSendWorld.h"

#include <cerrno>

/// A worker on the one mail of a small world.
class DeliveryThreadTest : public testing::Test
{
protected:
    /// Until the log holds the text.
    void Deliver(const CScriptedServer& server, const std::string& strUntil)
    {
        m_world.Route(server);
        const std::filesystem::path path = m_world.Path();
        m_pFiles->AddPending(path.filename().string());
        CSMTPDeliveryThread thread(m_world.settings, m_pFiles, "/nowhere",
                                   Bex::CSimpleString(std::string_view(path.parent_path().native())));
        ASSERT_TRUE(thread.Start());
        const uint64_t nEnd = Platform::TickCount() + 20000;
        while (!m_world.Logged(strUntil) && Platform::TickCount() < nEnd)
            Platform::SleepMillis(2);
        EXPECT_TRUE(m_world.Logged(strUntil));
        EXPECT_TRUE(thread.Stop());
    }

    CSendWorld m_world;
    std::shared_ptr<COutgoingFiles> m_pFiles = std::make_shared<COutgoingFiles>();
};

TEST_F(DeliveryThreadTest, LetsADeliveredFileBeSentAgainOnlyOnceItIsGone)
{
    CScriptedServer server(CScriptedServer::Replies{});
    {
        const Platform::CInjectedFault fault(Platform::EFault::Remove, 1, EBUSY, 10);
        Deliver(server, "successfully delivered mail from");
    }
    EXPECT_TRUE(m_world.HasMail());
    EXPECT_FALSE(m_pFiles->AddPending("x.eml"));
    m_pFiles->FinishDelivery("x.eml");
    Deliver(server, "successfully delivered mail from");
}

TEST_F(DeliveryThreadTest, SendsWhatGetsTheNameOfAMailWhileThatOneLeaves)
{
    using Replies = CScriptedServer::Replies;
    CScriptedServer server(Replies{}, Replies{{"QUIT", "drop"}});
    std::vector<std::string> moments{"connection to 127.0.0.1 established", "socket error after successful delivery"};
    m_world.Log().SetListener([&](const std::string& strLine) { // before and after the removal
        if (moments.empty() || !Holds(strLine, moments.front()))
            return;
        moments.erase(moments.begin());
        m_world.WriteMail("X-Envelope-To: new" + std::to_string(moments.size()) + "@far.example\r\n");
    });
    Deliver(server, "successfully delivered mail from <> to <new0@far.example>");
    EXPECT_TRUE(m_world.Logged("successfully delivered mail from <> to <new1@far.example>"));
    EXPECT_FALSE(m_world.HasMail());
}

TEST_F(DeliveryThreadTest, KeepsARefusedFileThatCannotBeBouncedNorMovedOutOfFurtherPasses)
{
    CScriptedServer server(CScriptedServer::Replies{{"RCPT", "550 no\r\n"}});
    Config().Set("Bounce.Disable", "1");
    const Platform::CInjectedFault fault(Platform::EFault::Remove, 1, EBUSY, 10);
    Deliver(server, "could not rename file \"");
    Config().Remove("Bounce.Disable");
    EXPECT_TRUE(m_world.HasMail());
    EXPECT_FALSE(m_pFiles->AddPending("x.eml"));
}
