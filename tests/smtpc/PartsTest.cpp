#include "Bex/CSocketException.h"
#include "Common/CMailFilter.h"
#include "Common/CSilentPeers.h"
#include "Common/Globals.h"
#include "Platform/CAdvancedClock.h"
#include "SMTPc/CReplyReader.h"
#include "SMTPc/CWaitingConnections.h"
#include "SMTPc/SDeliveryFailure.h"
#include "SMTPc/SDeliverySettings.h"
#include "SMTPc/TransferForm.h"
#include "support/CTemporaryDirectory.h"

#include <algorithm>
#include <deque>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

using EState = CReplyReader::EState;

using namespace std::string_view_literals;

TEST(ReplyReaderTest, KnowsACompleteReplyHoweverItIsCut)
{
    const struct
    {
        std::string_view reply;
        EState state;
        int iCode;
    } CASES[] = {{"250 ok\r\n", EState::Complete, 250},
                 {"250\n", EState::Complete, 250},
                 {"250-a\r\n250-b\r\n\r\n250 c\r\n", EState::Complete, 250},
                 {"\r\n250-a\n354 b\n", EState::Complete, 250}, // the first line's code counts
                 {"2\00050 ok\r\n"sv, EState::Complete, 250},
                 {"250-a\r\n", EState::Incomplete, 250},
                 {"250 ok", EState::Incomplete, 0},
                 {"25\r\n", EState::Incomplete, 25},
                 {"", EState::Incomplete, 0},
                 {"hello\r\n250 ok\r\n", EState::Incomplete, 0},
                 {"+250 ok\r\n", EState::Incomplete, 0},
                 {"000 ok\r\n", EState::Incomplete, 0}};
    for (const auto& tried : CASES) {
        CReplyReader whole;
        EXPECT_EQ(whole.Take(tried.reply), tried.state) << tried.reply;
        EXPECT_EQ(whole.Code(), tried.iCode) << tried.reply;
        CReplyReader cut;
        EState state = EState::Incomplete;
        for (char c : tried.reply) {
            if (state != EState::Complete)
                state = cut.Take({&c, 1});
        }
        EXPECT_EQ(state, tried.state) << tried.reply;
        EXPECT_EQ(cut.Text(), whole.Text());
    }
}

TEST(ReplyReaderTest, RefusesWhatHasNoEnd)
{
    CReplyReader lines;
    for (size_t i = 0; i < CReplyReader::MOST_LINES; ++i)
        ASSERT_EQ(lines.Take("250-x\r\n"), EState::Incomplete);
    EXPECT_EQ(lines.Take("250 x\r\n"), EState::TooLong);
    EXPECT_EQ(CReplyReader().Take(std::string(CReplyReader::MOST_BYTES + 1, '\n')), EState::TooLong);
}

TEST(TransferFormTest, EndsWhereTheMailEndsAndNowhereElse)
{
    const struct
    {
        std::string_view header;
        std::string_view body;
        std::string sent; ///< without the end marker
    } CASES[] = {{"A: b\r\n\r\n", "text\r\n", "A: b\r\n\r\ntext\r\n"},
                 {"A: b\r\n\r\n", "text\r\n.\r\n", "A: b\r\n\r\ntext"},            // not ended twice
                 {"A: b\r\n\r\n", ".\r\n", "A: b\r\n"},                            // nor across the blank line
                 {"A: b\r\n\r\n", "..\r\n...x\r\n", "A: b\r\n\r\n..\r\n...x\r\n"}, // in transfer form
                 {"A: b\r\n\r\n", "..a\r\n.\r\nQUIT\r\n", "A: b\r\n\r\n..a\r\n..\r\nQUIT\r\n"},
                 {"A: b\r\n\r\n", "a\r\n.", "A: b\r\n\r\na\r\n.."},
                 {"A: b\r\n\r\n", "..a\r\n.b\r\n.\r\n.\r\n", "A: b\r\n\r\n...a\r\n..b\r\n.."}, // plain text
                 {".A: b\r\n\r\n", "..a\r\n", "..A: b\r\n\r\n..a\r\n"},
                 {"A: b\rC: d\n.\nE\r\n\r\n", "a\n.\nb\r.\rc", "A: b C: d . E\r\n\r\na\r\n..\r\nb\r\n..\r\nc"},
                 {"", "", ""},
                 {"A: b\r\n\r\n", "", "A: b\r\n\r\n"}};
    for (const auto& tried : CASES)
        EXPECT_EQ(TransferForm(std::string(tried.header), Bex::CArray<char>(tried.body)).View(),
                  tried.sent + "\r\n.\r\n");
}

/// In bytes, since the last call.
size_t MostMemory()
{
    std::ifstream status("/proc/self/status");
    std::string strWord;
    while (strWord != "VmHWM:" && status >> strWord)
        continue;
    size_t nKilobytes = 0;
    status >> nKilobytes;
    std::ofstream("/proc/self/clear_refs") << "5";
    return nKilobytes << 10;
}

TEST(MemoryTest, IsThreeTimesTheMailAtTheMost)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer keeps what was freed";
#endif
    const CTemporaryDirectory directory(CTemporaryDirectory::IN_MEMORY);
    CMailFilter filter;
    ASSERT_TRUE(filter.Load(directory.Write("filters", "phrase\n").c_str()));
    const std::string strType = "Content-Type: text/plain\nContent-Transfer-Encoding: ";
    for (const std::string& strMail :
         {strType + "quoted-printable\n\n" + std::string(24 << 20, '\n'), "A: b\n\n" + std::string(24 << 20, '\r'),
          "From: " + std::string(15 << 20, 'a') + "\n\nbody"}) {
        directory.Write("1.eml", strMail);
        MostMemory();
        const size_t nBefore = MostMemory();
        CMail mail;
        ASSERT_TRUE(mail.Load((directory / "1.eml").c_str(), false));
        Bex::CSimpleString strReason;
        EXPECT_FALSE(filter.ContentFilterMatch(mail, strReason));
        EXPECT_TRUE(CMail(mail, "a@b").Save((directory / "2.eml").c_str(), EWriteMode::Envelope));
        EXPECT_GT(TransferForm(mail.GetHeaderText(EWriteMode::Plain), mail.TakeBody()).Size(), strMail.size());
        EXPECT_LT(MostMemory(), nBefore + 3 * strMail.size()) << strMail.substr(0, 9);
    }
}

TEST(SilentPeersTest, AreRememberedForTheirTimeWithinABound)
{
    CSilentPeers peers;
    peers.Note("first", 1000);
    for (size_t n = 0; n < CSilentPeers::MOST; ++n)
        peers.Note(std::to_string(n), 2000);
    EXPECT_TRUE(!peers.Contains("first") && peers.Contains("0"));
    EXPECT_EQ(peers.Count(), 4096u);
    Platform::CAdvancedClock clock;
    clock.Advance(2000);
    EXPECT_EQ(peers.Count(), 0u);
    Config().Set("AutoTransRetry", "0");
    EXPECT_EQ(SDeliverySettings::FromConfiguration().dwSilenceKept, 180u); // two time-outs
    Config().RemoveAll();
}

TEST(WaitingConnectionsTest, AreForTheTargetThatTheyWereOpenedForAndNoOther)
{
    const auto At = [](const char* pszAddress, uint16_t wPort) {
        return Bex::CSocketEndPoint(Bex::CIPv4Address(pszAddress), wPort);
    };
    const Bex::CSocketEndPoint place = At("192.0.2.1", 25);
    const CSmartHost opened{"mx.test", place, "ann", "secret", ETLSMode::Direct};
    CWaitingConnections waiting(30);
    waiting.Bring(std::make_unique<CSMTPConnection>(opened));
    for (const CSmartHost& other : {CSmartHost{"mx.other.test", place, "ann", "secret", ETLSMode::Direct},
                                    {"mx.test", At("192.0.2.2", 25), "ann", "secret", ETLSMode::Direct},
                                    {"mx.test", At("192.0.2.1", 26), "ann", "secret", ETLSMode::Direct},
                                    {"mx.test", place, "eve", "secret", ETLSMode::Direct},
                                    {"mx.test", place, "ann", "Secret", ETLSMode::Direct},
                                    {"mx.test", place, "ann", "secret", ETLSMode::Offered}})
        EXPECT_EQ(waiting.TakeTo(other), nullptr);
    EXPECT_NE(waiting.TakeTo(opened), nullptr);
}

TEST(WaitingConnectionsTest, MakeRoomForTheNewestAndEndWithTheirAge)
{
    constexpr size_t MOST = CWaitingConnections::MOST;
    Bex::CSecureSocket listener;
    listener.Create(Platform::FAMILY_IPV4);
    listener.Bind("127.0.0.1");
    listener.Listen(8);
    std::deque<Bex::CSecureSocket> hosts;
    CWaitingConnections waiting(3600);
    const auto Bring = [&](size_t nCount) {
        while (nCount-- > 0) {
            auto pConnection = std::make_unique<CSMTPConnection>(CSmartHost{});
            pConnection->client.Create(Platform::FAMILY_IPV4);
            pConnection->client.Connect("127.0.0.1", listener.LocalEndPoint().Port(), "");
            Bex::CSocketEndPoint from;
            hosts.emplace_back().SetTimeout(20);
            listener.Accept(hosts.back(), from);
            waiting.Bring(std::move(pConnection));
        }
    };
    size_t nTold = 0; // of the first ones, each QUIT
    const auto AreTold = [&](size_t nHosts) {
        char text[7] = "";
        for (; nTold < nHosts; ++nTold)
            EXPECT_EQ(std::string(text, hosts[nTold].Receive(text, sizeof(text), 0)), "QUIT\r\n");
        return std::none_of(hosts.begin() + static_cast<int>(nTold), hosts.end(),
                            [](auto& host) { return host.HasInput(); });
    };
    Bring(MOST);
    EXPECT_TRUE(AreTold(0));
    Bring(1);
    EXPECT_TRUE(AreTold(1));
    Bring(MOST);
    EXPECT_TRUE(AreTold(MOST + 1));
    EXPECT_TRUE(hosts[0].HasInput()); // closed on, to make room among those that have not answered
    Platform::CAdvancedClock clock;
    clock.Advance(1'800'000);
    waiting.EndOld();
    EXPECT_EQ(waiting.Count(), MOST); // and so are the others
    Bring(1);
    clock.Advance(1'800'000);
    waiting.EndOld();
    EXPECT_TRUE(AreTold(2 * MOST + 1)); // all but the last one
}

TEST(DeliveryFailureTest, OfSocketsThatAreShortGivesNoMailUp)
{
    for (const uint32_t dwError : {Platform::SOCKET_TOO_MANY_OPEN, Platform::SOCKET_REFUSED}) {
        const auto failure = FailureOf([&] { Bex::ThrowSocketException("", 0, dwError); });
        EXPECT_EQ(Platform::IsBusy(failure->Outcome().error), dwError == Platform::SOCKET_TOO_MANY_OPEN);
    }
}
