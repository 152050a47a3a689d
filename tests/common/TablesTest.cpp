#include "CAccountWorld.h"
#include "Common/CMailFilter.h"

#include <gtest/gtest.h>

using Bex::CSimpleString;

namespace {

TEST(DomainsTest, LocalIsTheListedDomainAndNothingBelowIt)
{
    const CAccountWorld world({}, "One.Example  # ours\ntwo.example\nONE.example\n");
    struct
    {
        const char* address;
        bool bLocal;
    } const cases[] = {{"ann@one.example", true},
                       {"ann@ONE.EXAMPLE", true},
                       {"ann", true},
                       {"", false},
                       {"ann@", false},
                       {"ann@sub.one.example", false},
                       {"ann@b@two.example", false},
                       {"@two.example", true},
                       {"ann@two.example ", false},
                       {"ann@two.example@x", false},
                       {"one.example", true}};
    for (const auto& one : cases)
        EXPECT_EQ(IsLocalAddress(one.address), one.bLocal) << one.address;

    const CSimpleString* const pFirst = LocalDomains().FindDomain("one.example");
    ASSERT_NE(pFirst, nullptr);
    EXPECT_EQ(*pFirst, "One.Example");
    const CSimpleString* const pSecond = LocalDomains().FindDomain("one.example", pFirst);
    ASSERT_NE(pSecond, nullptr);
    EXPECT_EQ(*pSecond, "ONE.example");
    EXPECT_EQ(LocalDomains().FindDomain("one.example", pSecond), nullptr);
    LocalDomains().Append("three.example");
    EXPECT_TRUE(IsLocalAddress("ann@three.example"));
}

struct FilterCase
{
    const char* subject;
    const char* contentType;
    const char* body;
    const char* reason; ///< null: passes
};

class MailFilterTest : public testing::TestWithParam<FilterCase>
{};

TEST_P(MailFilterTest, FirstPhraseThatOccursIsTheReason)
{
    const CTemporaryDirectory directory;
    CMailFilter filter;
    ASSERT_TRUE(filter.Load(CSimpleString(directory.Write("filters", "Cheap Pills\nWatch # sold\npills\n"))));
    CMail mail;
    ASSERT_TRUE(mail.Parse(std::string("Subject: ") + GetParam().subject +
                           "\r\nContent-Type: " + GetParam().contentType + "\r\n\r\n" + GetParam().body));
    CSimpleString strReason;
    EXPECT_EQ(filter.ContentFilterMatch(mail, strReason), GetParam().reason != nullptr);
    EXPECT_EQ(strReason, CSimpleString(GetParam().reason));
}

INSTANTIATE_TEST_SUITE_P(Mails, MailFilterTest,
                         testing::Values(FilterCase{"buy CHEAP pills", "text/plain", "x", "cheap pills"},
                                         FilterCase{"a WATCH here", "text/plain", "x", "watch "},
                                         FilterCase{"a watch", "text/plain", "x", nullptr},
                                         FilterCase{"", "text/html", "<b>Pills</b>", "pills"},
                                         FilterCase{"", "Text/plain", "pills", nullptr},
                                         FilterCase{"", "application/pdf", "pills", nullptr},
                                         FilterCase{"pill", "text/plain", "s", nullptr}));

TEST(GlobalsTest, DirectoriesComeInNativeForm)
{
    const CAccountWorld world({}, "");
    Config().Set("QueueDir", "d:\\q\\in");
    EXPECT_EQ(ConfiguredDirectory("QueueDir", "c:\\mail\\queue"), "/q/in");
    EXPECT_EQ(ConfiguredDirectory("ErrorDir", "c:\\mail\\error"), "/mail/error");
    ASSERT_EQ(setenv("MAILCONFIGDIR", "/etc/tobix", 1), 0);
    EXPECT_EQ(ConfigDirectory(), "/etc/tobix");
    unsetenv("MAILCONFIGDIR");
    EXPECT_EQ(ConfigDirectory(), "");
}

} // namespace
