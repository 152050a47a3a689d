#include "Bex/CResolver.h"
#include "Common/CSmartHosts.h"
#include "Common/SmartHostEntry.h"
#include "Common/TargetResolution.h"
#include "Platform/CInjectedFault.h"
#include "Platform/DnsQuery.h"
#include "support/CDnsServer.h"
#include "support/CLogRecorder.h"

#include <atomic>
#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>

using namespace Bex;
using testing::ElementsAre;

namespace {

using CTexts = std::vector<std::string>;

const CSimpleString& Line(const CSimpleString& strText) { return strText; }
CSimpleString Line(const CSmartHost& target)
{
    return CSimpleString::Formatted("%s %s %u %u %s", target.strHostName.Text(),
                                    target.endPoint.Address()->Text().Text(), target.endPoint.Port(),
                                    static_cast<unsigned>(target.mode), target.strUser.Text());
}
CTexts Texts(const auto& list)
{
    CTexts texts;
    for (const auto& element : list)
        texts.emplace_back(Line(element).Text());
    return texts;
}

class TargetsTest : public testing::Test, protected CDnsServer
{
public:
    static void SetUpTestSuite() { setenv("TOBIX_CONNECTIVITY", "46", 1); } // before the process probes

protected:
    CTexts Targets(const char* pszDomain, EResolution expected = EResolution::Done, bool bFirst = false)
    {
        CTargetList targets;
        EXPECT_EQ(ResolveTargets(targets, pszDomain, bFirst, {}), expected);
        return Texts(targets);
    }
    void TellHost(const char* pszName, const char* pszIPv4) { Tell(pszName, A, {IPv4(pszIPv4)}); }

    CLogRecorder log;
};

TEST_F(TargetsTest, AsksAgainWhenThreadsOrDescriptorsWereShort)
{
    TellHost("a.test", "192.0.2.1");
    {
        const Platform::CInjectedFault fault(Platform::EFault::CreateThread, 1, EAGAIN, 9);
        EXPECT_THAT(Targets("a.test"), ElementsAre());
    }
    rlimit whole{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &whole), 0);
    const int iFirstFree = dup(STDIN_FILENO);
    close(iFirstFree);
    for (int iMore = 0; iMore < 40; ++iMore) { // at none of them the library may end the process
        const rlimit few{static_cast<rlim_t>(iFirstFree + iMore), whole.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        EXPECT_THAT(Targets("a.test"), testing::SizeIs(testing::Le(1))) << iMore;
    }
    setrlimit(RLIMIT_NOFILE, &whole);
    EXPECT_THAT(Targets("a.test"), ElementsAre("a.test 192.0.2.1 25 1 "));
    log.Take();
}

TEST_F(TargetsTest, ListsTheExchangesByPreferenceAndIPv6First)
{
    Tell("example.test", MX,
         {Exchange(20, "a.test"), Exchange(10, "b.test"), Exchange(10, "c.test"), Exchange(65535, "d.test")});
    TellHost("a.test", "192.0.2.1");
    TellHost("b.test", "192.0.2.2");
    Tell("b.test", AAAA, {IPv6("2001:db8::2")});
    TellHost("c.test", "192.0.2.3");
    Tell("d.test", A, {IPv4("192.0.2.9"), IPv4("192.0.2.4")});
    const auto expected = ElementsAre("b.test 2001:db8::2 25 1 ", "b.test 192.0.2.2 25 1 ", "c.test 192.0.2.3 25 1 ",
                                      "a.test 192.0.2.1 25 1 ", "d.test 192.0.2.9 25 1 ", "d.test 192.0.2.4 25 1 ");
    EXPECT_THAT(Targets("example.test"), expected);
    EXPECT_THAT(Targets("example.test"), expected); // from the cache
    EXPECT_EQ(Asked("example.test", MX), 1);
    EXPECT_THAT(Targets("example.test", EResolution::Done, true),
                ElementsAre("b.test 2001:db8::2 25 1 ", "b.test 192.0.2.2 25 1 "));
    EXPECT_THAT(log.Lines(), ElementsAre());
}

TEST_F(TargetsTest, StopsAtManyAddresses)
{
    Tell("many.test", MX, {Exchange(1, "a.test"), Exchange(2, "b.test")});
    CData addresses;
    for (int i = 0; i < 300; ++i)
        addresses.push_back(IPv4(CSimpleString::Formatted("10.0.%d.%d", i / 100, i % 100).Text()));
    Tell("a.test", A, addresses);
    EXPECT_EQ(Targets("many.test").size(), 256u);
    EXPECT_EQ(Asked("b.test", A), 0);
}

TEST_F(TargetsTest, TellsADomainWithoutMailFromOneWithoutExchanges)
{
    Tell("null.test", MX, {Exchange(0, ".")});
    EXPECT_THAT(Targets("null.test", EResolution::NullMX), ElementsAre());
    Tell("half.test", MX, {Exchange(0, "."), Exchange(5, "a.test")});
    TellHost("a.test", "192.0.2.1");
    EXPECT_THAT(Targets("half.test"), ElementsAre("a.test 192.0.2.1 25 1 "));
    TellHost("plain.test", "192.0.2.5");
    EXPECT_THAT(Targets("plain.test"), ElementsAre("plain.test 192.0.2.5 25 1 "));
    EXPECT_THAT(Targets("gone.test"), ElementsAre());
}

TEST_F(TargetsTest, FollowsCanonicalNamesToAnEnd)
{
    Tell("alias.test", CNAME, {Name("real.test")});
    Tell("real.test", MX, {Exchange(1, "mx.test")});
    TellHost("real.test", "192.0.2.1");
    TellHost("mx.test", "192.0.2.2");
    EXPECT_THAT(Targets("alias.test"), ElementsAre("mx.test 192.0.2.2 25 1 "));
    Tell("www.test", CNAME, {Name("host.test")});
    TellHost("host.test", "192.0.2.3");
    EXPECT_THAT(Targets("www.test"), ElementsAre("host.test 192.0.2.3 25 1 "));
    Tell("x.test", CNAME, {Name("y.test")});
    Tell("y.test", CNAME, {Name("x.test")});
    EXPECT_THAT(Targets("x.test", EResolution::RetryLater), ElementsAre());
}

TEST_F(TargetsTest, KnowsFailuresFromEmptyAnswers)
{
    CList<CSimpleString> names;
    EXPECT_TRUE(CResolver::ResolveMX("gone.test", names));
    Tell("empty.test", MX, {});
    EXPECT_TRUE(CResolver::ResolveMX("empty.test", names));
    EXPECT_THAT(log.Lines(), ElementsAre());
    Tell("broken.test", MX, {}, SERVFAIL);
    EXPECT_FALSE(CResolver::ResolveMX("broken.test", names));
    EXPECT_FALSE(CResolver::ResolveMX("bad..name", names));
    EXPECT_THAT(log.Take(), testing::MatchesRegex("(3 DnsQuery failed at Bex/CResolver:[0-9]+ with code "
                                                  "0x0000(232A|007B)\n\n){2}"));
    EXPECT_TRUE(names.IsEmpty());
    Tell("silent.test", A, {}, SILENCE);
    CTexts records;
    EXPECT_EQ(Platform::QueryDns("silent.test", Platform::EDnsType::A, Platform::CWaitLimit().For(200), records),
              Platform::DNS_TIMED_OUT);
}

TEST_F(TargetsTest, GivesOneTextPerRecordAndTakesLongAnswers)
{
    CData data;
    CTexts expected;
    for (int iRecord = 0; iRecord < 40; ++iRecord) {
        const std::string strText = std::to_string(100 + iRecord).append(57, 'x');
        expected.push_back(strText + "end");
        data.push_back(std::string("\x3c").append(strText).append("\3end"));
    }
    Tell("long.test", TXT, data);
    CList<CSimpleString> texts;
    EXPECT_TRUE(CResolver::ResolveTXT("long.test", texts));
    EXPECT_EQ(Texts(texts), expected);
}

TEST_F(TargetsTest, AsksForNamesAsTheSystemDoes)
{
    CList<CIPv6Address> addresses;
    EXPECT_TRUE(CResolver::ResolveAAAA("LocalHost.", addresses));
    ASSERT_EQ(addresses.Count(), 1u);
    EXPECT_TRUE(addresses.begin()->IsLoopback());
    Tell("relay.corp.test", CNAME, {Name("r1.corp.test")});
    CList<CSimpleString> names;
    EXPECT_TRUE(CResolver::ResolveCNAME("relay", names));
    EXPECT_THAT(Texts(names), ElementsAre("r1.corp.test"));
    Tell("odd.test", CNAME, {std::string("\4a.b\n\0", 6)});
    EXPECT_TRUE(CResolver::ResolveCNAME("odd.test", names));
    EXPECT_EQ(names.At(1), "a\\.b\\010");
}

TEST_F(TargetsTest, AnswersManyThreadsAtOnce)
{
    constexpr int NAMES = 50;
    for (int iName = 0; iName < NAMES; ++iName)
        TellHost(CSimpleString::Formatted("n%d.test", iName).Text(), "192.0.2.1");
    Tell("silent.test", A, {}, SILENCE);
    std::atomic<int> nFound = 0;
    std::vector<std::jthread> threads;
    for (uint32_t nMillis = 0; nMillis < 6; ++nMillis) {
        threads.emplace_back([&nFound, nMillis] {
            CTexts records;
            EXPECT_EQ(
                Platform::QueryDns("silent.test", Platform::EDnsType::A, Platform::CWaitLimit().For(nMillis), records),
                Platform::DNS_TIMED_OUT);
            for (int iName = 0; iName < NAMES; ++iName) {
                CList<CIPv4Address> addresses;
                CResolver::ResolveA(CSimpleString::Formatted("n%d.test", iName), addresses);
                nFound += static_cast<int>(addresses.Count());
            }
        });
    }
    threads.clear();
    EXPECT_EQ(nFound, 6 * NAMES);
}

TEST(SmartHostEntryTest, IsReadAsFarAsItGoes)
{
    const std::pair<const char*, const char*> CASES[] = {// to user, password, host, port, mode
                                                         {"relay", "||relay|25|1"},
                                                         {" relay:587t", "|| relay|587|2"},
                                                         {"u@d:p:w@h:465s", "u@d|p:w|h|465|3"},
                                                         {"u@h:465S", "u||h|465|1"},
                                                         {"u:p@[2001:db8::1]:26i", "u|p|2001:db8::1|26|0"},
                                                         {"[::1]", "||::1|25|1"},
                                                         {"[::1", "||::1|25|1"},
                                                         {"h:", "||h|0|1"}};
    for (const auto& [pszText, pszParts] : CASES) {
        const auto entry = ParseSmartHostEntry(pszText);
        EXPECT_EQ(CSimpleString::Formatted("%s|%s|%s|%d|%u", entry.strUser.Text(), entry.strPassword.Text(),
                                           entry.strHost.Text(), entry.wPort, static_cast<unsigned>(entry.mode)),
                  pszParts);
    }
}

TEST_F(TargetsTest, TakesTheSmartHostsOfTheMostSpecificKey)
{
    CSmartHosts table;
    table.Set("*", "192.0.2.1");
    table.Set(">example.org", "u:p@[2001:db8::1]:465s,192.0.2.2:25s,h.test,gone.test");
    table.Set("<a.sender.org", "192.0.2.3:2525i");
    TellHost("real.test", "192.0.2.7");
    Tell("h.test", CNAME, {Name("real.test")});
    CTargetList targets;
    const auto find = [&](const char* pszSender, const char* pszRecipient) {
        table.FindSmartHosts(pszSender, pszRecipient, {}, targets);
        return Texts(targets);
    };
    EXPECT_THAT(find("x.org", "example.org"),
                ElementsAre("2001:db8::1 2001:db8::1 465 3 u", "192.0.2.2 192.0.2.2 25 1 ", "h.test 192.0.2.7 25 1 "));
    EXPECT_THAT(find("a.sender.org", "example.org"), ElementsAre("192.0.2.3 192.0.2.3 2525 0 "));
    EXPECT_THAT(find("x.org", "EXAMPLE.org"), ElementsAre("192.0.2.1 192.0.2.1 25 1 "));
    EXPECT_THAT(find("x.org", ""), ElementsAre());
    table.Set("<", "192.0.2.4");
    EXPECT_THAT(find("", ""), ElementsAre("192.0.2.4 192.0.2.4 25 1 "));
}

} // namespace
