#include "Common/Globals.h"
#include "Platform/CAdvancedClock.h"
#include "Tobix/DMARCPolicy.h"
#include "Tobix/ForwardingRewrites.h"
#include "Tobix/SRS.h"
#include "support/Becomes.h"
#include "support/CDnsServer.h"
#include "support/CTemporaryDirectory.h"

#include <gtest/gtest.h>
#include <string>

namespace {

constexpr int64_t DAY = 86400;

std::string Rewritten(const char* pszAddress, int64_t iSeconds = 0, const char* pszChallenge = "secret")
{
    return SRSRewrite(pszAddress, "srs.example", pszChallenge, Bex::CTime(iSeconds)).Text();
}

TEST(SRSTest, GivesTheFormForEachKindOfSender)
{
    EXPECT_EQ(Rewritten("ann@far.example").substr(0, 5), "SRS0+");
    EXPECT_EQ(Rewritten("ann@far.example").substr(9), "=AA=far.example=ann@srs.example");
    EXPECT_EQ(Rewritten("ann").substr(9), "=AA==ann@srs.example");
    for (const std::string strSeparator : {"+", "-", "="}) {
        EXPECT_EQ(Rewritten(("SRS0" + strSeparator + "abcd=XY=far.example=ann@one.example").c_str()).substr(9),
                  "=one.example==abcd=XY=far.example=ann@srs.example");
        EXPECT_EQ(Rewritten(("SRS1" + strSeparator + "abcd=one.example==x=y@two.example").c_str()),
                  "SRS1" + strSeparator + "abcd=one.example==x=y@srs.example");
    }
    EXPECT_EQ(Rewritten("SRS0.x@one.example").substr(9), "=AA=one.example=SRS0.x@srs.example");
    EXPECT_EQ(Rewritten("srs0+x@one.example").substr(9), "=AA=one.example=srs0+x@srs.example");
    EXPECT_EQ(Rewritten(""), "");
}

TEST(SRSTest, StampsTheDayInTwoCharactersThatRepeatAfter1024Days)
{
    const auto Stamp = [](int64_t iDay) { return Rewritten("a@b", iDay * DAY + DAY - 1).substr(10, 2); };
    EXPECT_EQ(Stamp(1), "BA");
    EXPECT_EQ(Stamp(31), "7A");
    EXPECT_EQ(Stamp(32), "AB");
    EXPECT_EQ(Stamp(1023), "77");
    EXPECT_EQ(Stamp(1024 * 20 + 5), Stamp(5));
}

TEST(SRSTest, HashesWithTheFirstFiveBytesOfTheChallenge)
{
    EXPECT_EQ(Rewritten("a@b", 0, "12345678"), Rewritten("a@b", 0, "12345"));
    EXPECT_NE(Rewritten("a@b", 0, "12345"), Rewritten("a@b", 0, "12346"));
    EXPECT_NE(Rewritten("a@b", 0, "1234"), Rewritten("a@b", 0, "12345"));
    // the hash ends before the first zero among the digest's first three bytes
    for (const auto& [pszAddress, pszHash] : {std::pair("47@b", "F5s="), {"62@b", "Cw=="}, {"85@b", ""}})
        EXPECT_EQ(Rewritten(pszAddress).substr(5),
                  std::string(pszHash) + "=AA=b=" + pszAddress[0] + pszAddress[1] + "@srs.example");
}

TEST(DMARCPolicyTest, IsTheFirstOneThatARecordTells)
{
    const struct
    {
        std::vector<const char*> texts;
        const char* pszPolicy;
    } CASES[] = {{{"v=DMARC1; p=reject; rua=mailto:x@y"}, "reject"},
                 {{"v=DMARC1 ;\t p=reject \\; pct=100"}, "reject"},
                 {{"v=DMARC1\\;p=quarantine\\;sp=reject"}, "quarantine"},
                 {{"v=spf1 -all", "v=DMARC1", "v=DMARC1;sp=none", "v=DMARC1;p=reject", "v=DMARC1;p=none"}, "reject"},
                 {{"V=DMARC1;p=reject", "v=DMARC1;P=reject", " v=DMARC1;p=reject"}, "none"},
                 {{"v=DMARC1;p=Reject"}, "Reject"},
                 {{"v=DMARC1;p=", "v=DMARC1;p=reject"}, ""},
                 {{"", "v=DMARC"}, "none"}};
    for (const auto& test : CASES) {
        Bex::CList<Bex::CSimpleString> texts;
        for (const char* pszText : test.texts)
            texts.Append(pszText);
        EXPECT_EQ(FindDMARCPolicy(texts), test.pszPolicy) << test.texts.front();
    }
}

TEST(DMARCPolicyTest, IsAskedForAtTheDomainAndItsParents)
{
    const auto Names = [](const std::string& strDomain) {
        std::string strNames;
        for (const Bex::CSimpleString& strName : DMARCNames(strDomain.c_str()))
            strNames.append(strName.View().substr(6)).append(" ");
        return strNames;
    };
    EXPECT_EQ(Names(""), "");
    EXPECT_EQ(Names("com"), ".com ");
    EXPECT_EQ(Names("a.b.com"), ".a.b.com .b.com ");
    EXPECT_EQ(Names("com."), ".com. ");
    EXPECT_EQ(Names("1.2.3.4.5.6.7.8.9.com").substr(0, 39), ".1.2.3.4.5.6.7.8.9.com .4.5.6.7.8.9.com");
    EXPECT_EQ(Names(std::string(254, 'a')), "");
}

TEST(DMARCPolicyTest, HasTenSecondsToBeAnsweredAndIsNotAskedForAgainForFiveMinutes)
{
    CDnsServer names;
    Platform::CAdvancedClock clock;
    const auto Ask = [](const char* pszDomain) {
        return std::string(LookupDMARCPolicy(pszDomain, {}, [] {}).value_or("later").View());
    };
    const std::string strRecord = "\x11v=DMARC1;p=reject";
    for (const char* pszDomain : {"silent.test", "slow.test"}) {
        const std::string strName = std::string("_dmarc.") + pszDomain;
        names.Tell(strName, CDnsServer::TXT, {}, CDnsServer::SILENCE);
        EXPECT_EQ(Ask(pszDomain), "later");
        names.Tell(strName, CDnsServer::TXT, {strRecord});
    }
    EXPECT_TRUE(Becomes([&] { return Ask("slow.test") == "reject"; }));
    for (const uint64_t ui64Millis : {10'000, 285'000}) {
        clock.Advance(ui64Millis);
        EXPECT_EQ(Ask("silent.test"), "none");
    }
    clock.Advance(15'000);
    EXPECT_TRUE(Becomes([&] { return Ask("silent.test") == "reject"; }));
    names.OnAsked([&] { clock.Advance(5000); });
    Ask("late.test");
    names.OnAsked({});
    names.Tell("_dmarc.waits.test", CDnsServer::TXT, {}, CDnsServer::SILENCE);
    const uint64_t ui64Started = Platform::TickCount();
    EXPECT_EQ(Ask("waits.test"), "later");
    EXPECT_LT(Platform::TickCount() - ui64Started, 250u); // enough was waited
}

Bex::CSimpleString RejectAtFar(const Bex::CSimpleString& strDomain)
{
    return strDomain == "far.example" ? "reject" : "quarantine";
}

class ForwardingTest : public testing::Test
{
protected:
    /// The header of a forwarded mail of that author, with SRS on.
    std::string Forwarded(const char* pszAuthor, const std::string& strMore, const char* pszConfig = "")
    {
        const std::string strSRS = "SRS.Domain: srs.example\nSRS.Challenge: secret\n";
        EXPECT_TRUE(Config().Load(m_directory.Write("tobix.cfg", strSRS + pszConfig).c_str()));
        const std::string strEnvelope = "X-Envelope-From: bob@home.example\r\nX-Envelope-To: ann@example.org\r\n";
        CMail mail;
        mail.Parse(strEnvelope + "From: \"Bob\" <" + pszAuthor + ">\r\n" + strMore + "\r\nbody");
        ApplyForwardingRewrites(mail, "ann@example.org", RejectAtFar(AuthorDomain(mail)));
        EXPECT_TRUE(m_bSRS == mail.EnvelopeSender().View().ends_with("=home.example=bob@srs.example"));
        return mail.GetHeaderText(EWriteMode::Envelope);
    }

    CTemporaryDirectory m_directory;
    bool m_bSRS = true;
};

bool Has(const std::string& strHeader, const std::string& strText)
{
    return strHeader.find(strText) != std::string::npos;
}

TEST_F(ForwardingTest, AnAuthorAtARejectingDomainGivesWayToTheEnvelopeSender)
{
    const std::string strSignatures = "DKIM-Signature: v=1; 1\r\nDKIM-Signature: v=1; 2\r\nDKIM-Signature: v=1; 1\r\n";
    const std::string strHeader = Forwarded("bob@far.example", strSignatures);
    EXPECT_TRUE(Has(strHeader, "From: \"Bob\" <SRS0+")) << strHeader;
    EXPECT_TRUE(Has(strHeader, "\r\nSender: bob@far.example\r\n"));
    EXPECT_TRUE(Has(strHeader, "\r\nReply-To: <bob@far.example>\r\n"));
    EXPECT_TRUE(Has(strHeader, "\r\nX-Resent-For: ann@example.org\r\n"));
    EXPECT_FALSE(Has(strHeader, "v=1; 1"));
    EXPECT_TRUE(Has(strHeader, "v=1; 2"));
    const std::string strKept = Forwarded("bob@far.example", "Sender: eve@x\r\nReply-To: list@x\r\n");
    EXPECT_TRUE(Has(strKept, "Sender: eve@x") && Has(strKept, "Reply-To: list@x") && !Has(strKept, "bob@far.example"));
}

TEST_F(ForwardingTest, OtherAuthorsStay)
{
    for (const char* pszAuthor : {"bob@near.example", "bob", "bob@x@far.example"})
        EXPECT_TRUE(Has(Forwarded(pszAuthor, "DKIM-Signature: 1\r\n"), "DKIM-Signature: 1\r\n"));
    const std::string strOff = Forwarded("bob@far.example", "", "Header.Forward.DMARCWorkaround: 0\n");
    EXPECT_TRUE(Has(strOff, "<bob@far.example>") && Has(strOff, "X-Resent-For") && !Has(strOff, "Sender:"));
    m_bSRS = false;
    CMail null;
    ApplyForwardingRewrites(null, "ann@example.org", "none");
    EXPECT_TRUE(null.EnvelopeSender().IsEmpty());
    EXPECT_TRUE(Config().Load(m_directory.Write("tobix.cfg", "SRS.Domain: srs.example\n").c_str()));
    CMail mail;
    mail.SetEnvelopeSender("bob@home.example");
    ApplyForwardingRewrites(mail, "ann@example.org", RejectAtFar(AuthorDomain(mail)));
    EXPECT_EQ(mail.EnvelopeSender(), "bob@home.example");
}

} // namespace
