#include "Bex/CFile.h"
#include "Platform/CInjectedFault.h"
#include "Tobix/CSMTPDeliveryThread.h"
#include "smtpc/CSendWorld.h"
#include "support/Becomes.h"

#include <cerrno>

using Replies = CScriptedServer::Replies;

namespace {

const std::string ENVELOPE = "X-Envelope-From: ann@here.example\r\nX-Envelope-To: bob@far.example\r\n";

/// A worker on the one mail of a small world.
class CDeliveryWorld : public CSendWorld
{
public:
    CDeliveryWorld() { std::filesystem::create_directory(ErrorDirectory()); }
    ~CDeliveryWorld() { Config().RemoveAll(); }
    /// Until the log holds the text.
    void Deliver(const CScriptedServer& server, const std::string& strUntil)
    {
        Route(server);
        m_pFiles->AddPending("x.eml");
        CSMTPDeliveryThread thread(settings, m_pFiles, ErrorDirectory().c_str(), Directory().c_str());
        ASSERT_TRUE(thread.Start());
        EXPECT_TRUE(Becomes([&] { return Logged(strUntil); })) << Log().Take();
        EXPECT_TRUE(thread.Stop());
    }
    bool NameIsFree() { return m_pFiles->AddPending("x.eml"); }
    void FreeName() { m_pFiles->FinishDelivery("x.eml"); }
    std::filesystem::path Directory() const { return std::filesystem::path(Path()).parent_path(); }
    std::filesystem::path ErrorDirectory() const { return Directory() / "error"; }

private:
    std::shared_ptr<COutgoingFiles> m_pFiles = std::make_shared<COutgoingFiles>();
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
                std::string(17 << 20, 'x') + "\r\n"}}) {
        SCOPED_TRACE(row.strLogged);
        CDeliveryWorld world;
        world.WriteMail(row.strHeader);
        std::ofstream(world.Path() + ".err") << "of the last attempt";
        CScriptedServer server(Replies{{"RCPT", row.strReply}});
        Config().Set("AutoTransTime", row.pszAutoTransTime);
        Config().Set("Bounce.Disable", "1");
        world.Deliver(server, row.strLogged);
        EXPECT_EQ(world.HasMail(), row.fate == EFate::Waits);
        EXPECT_EQ(world.Report().empty(), row.fate == EFate::Gone);
        EXPECT_EQ(std::filesystem::exists(world.ErrorDirectory() / "x.eml"), row.fate == EFate::InError);
        EXPECT_EQ(world.NameIsFree(), row.fate == EFate::InError);
        EXPECT_FALSE(world.Logged("SystemCall"));
    }
}

TEST(DeliveryThreadTest, GivesUpWhatIsOlderThanAutoTransTime)
{
    EXPECT_FALSE(CSMTPDeliveryThread::IsOverdue(120 * 60, 120));
    EXPECT_TRUE(CSMTPDeliveryThread::IsOverdue(120 * 60 + 1, 120));
    EXPECT_FALSE(CSMTPDeliveryThread::IsOverdue(-1, 0));
    EXPECT_FALSE(CSMTPDeliveryThread::IsOverdue(INT32_MAX, INT32_MAX));
}

TEST(DeliveryThreadTest, LetsADeliveredFileBeSentAgainOnlyOnceItIsGone)
{
    CDeliveryWorld world;
    CScriptedServer server(Replies{});
    {
        const Platform::CInjectedFault fault(Platform::EFault::Remove, 1, EBUSY, 10);
        world.Deliver(server, "successfully delivered mail from");
    }
    EXPECT_TRUE(world.HasMail());
    EXPECT_FALSE(world.NameIsFree());
    world.FreeName();
    world.Deliver(server, "successfully delivered mail from");
}

TEST(DeliveryThreadTest, SendsWhatGetsTheNameOfAMailWhileThatOneLeaves)
{
    CDeliveryWorld world;
    CScriptedServer server(Replies{}, Replies{{"QUIT", "drop"}});
    std::vector<std::string> moments{"connection to 127.0.0.1 established", "socket error after successful delivery"};
    world.Log().SetListener([&](const std::string& strLine) { // before and after the removal
        if (moments.empty() || !Holds(strLine, moments.front()))
            return;
        moments.erase(moments.begin());
        world.WriteMail("X-Envelope-To: new" + std::to_string(moments.size()) + "@far.example\r\n");
    });
    world.Deliver(server, "successfully delivered mail from <> to <new0@far.example>");
    EXPECT_TRUE(world.Logged("successfully delivered mail from <> to <new1@far.example>"));
    EXPECT_FALSE(world.HasMail());
}

TEST(DeliveryThreadTest, KeepsARefusedFileThatCannotBeBouncedNorMovedOutOfFurtherPasses)
{
    CDeliveryWorld world;
    CScriptedServer server(Replies{{"RCPT", "550 no\r\n"}});
    Config().Set("Bounce.Disable", "1");
    const Platform::CInjectedFault fault(Platform::EFault::Remove, 1, EBUSY, 10);
    std::filesystem::remove(world.ErrorDirectory());
    world.Deliver(server, "could not rename file \"");
    EXPECT_TRUE(world.HasMail());
    EXPECT_FALSE(world.NameIsFree());
}
