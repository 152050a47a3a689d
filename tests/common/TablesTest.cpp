#include "CAccountWorld.h"
#include "Common/CConfigCheck.h"
#include "Common/CMailFilter.h"

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

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
    std::string body;
    const char* reason; ///< null: passes
};

const std::string LONG_TEXT(65530, 'x'); ///< what follows lies in two windows

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
                                         FilterCase{"pill", "text/plain", "s", nullptr},
                                         FilterCase{"", "text/plain", LONG_TEXT + "Cheap pills", "cheap pills"},
                                         FilterCase{"", "text/plain", "PILLS" + LONG_TEXT + "a watch ", "watch "}));

/// A key's row in the manual.
std::string RowOf(const Bex::SConfigKey& key)
{
    const bool bQuoted = key.kind == Bex::EKeyKind::Text || key.kind == Bex::EKeyKind::Path;
    std::string strDefault = key.whenMissing.pszText;
    if (key.whenMissing.bOtherKey)
        strDefault = "as `" + strDefault + "` ";
    else if (!strDefault.empty())
        strDefault = bQuoted ? "`" + strDefault + "` " : strDefault + " ";
    return std::string("| `") + key.pszName + "` | " + strDefault + "| " + key.pszMeaning + " |";
}

TEST(ConfigKeysTest, ManualPrintsTheTables)
{
    std::vector<std::string> expected;
    std::ranges::transform(Keys::TABLE, std::back_inserter(expected), RowOf);
    std::ranges::transform(AccountKeys::TABLE, std::back_inserter(expected), RowOf);
    std::vector<std::string> printed;
    std::ifstream manual(TOBIX_SOURCE_DIR "/docs/configuration.md");
    for (std::string strLine; std::getline(manual, strLine);) {
        if (strLine.starts_with("| `"))
            printed.push_back(strLine);
    }
    EXPECT_THAT(printed, testing::ElementsAreArray(expected));
}

TEST(ConfigKeysTest, KeysOfTheFileAreReadWithTheirCaseAndTheirDefaults)
{
    const CAccountWorld world({}, "");
    Bex::CConfigFile& config = Config();
    const std::string strPath =
        world.Directory().Write("tobix.cfg", "QueueDir: d:\\q\\in # \n\n# UseTLS: 0\ntimeout: 100\n"
                                             "UseTLS: yes\nUseTLS: 1\nLogHost:\nTimeout: 2\n");
    ASSERT_TRUE(config.Load(CSimpleString(strPath)));
    EXPECT_EQ(config.GetPath(Keys::QUEUE_DIR), "/q/in");
    EXPECT_EQ(config.GetPath(Keys::ERROR_DIR), "/mail/error");
    EXPECT_EQ(config.GetInt(Keys::TIME_OUT), 90);
    EXPECT_FALSE(config.GetFlag(Keys::USE_TLS));
    EXPECT_EQ(config.GetString(Keys::TRAFFIC_LOG_HOST), "") << "an empty value is no missing one";
    EXPECT_EQ(config.GetInt(Keys::TRAFFIC_LOG_PORT), 514);
    EXPECT_TRUE(config.GetFlag(Keys::SCRIPTS_IN_PARALLEL));
    config.Set("AsyncScripts", "0");
    EXPECT_FALSE(config.GetFlag(Keys::SCRIPTS_IN_PARALLEL));
    config.Set("Scripts.Execution.Parallel", "1");
    EXPECT_TRUE(config.GetFlag(Keys::SCRIPTS_IN_PARALLEL));

    CConfigCheck check(Keys::TABLE);
    ASSERT_TRUE(check.Load(CSimpleString(strPath)));
    std::vector<std::pair<uint32_t, std::string>> unknown;
    for (const CConfigCheck::SUnknownKey& key : check.UnknownKeys())
        unknown.emplace_back(key.nLine, key.strKey.Text());
    EXPECT_THAT(unknown, testing::ElementsAre(testing::Pair(4, "timeout"), testing::Pair(8, "Timeout")));
}

TEST(GlobalsTest, ConfigurationDirectoryIsTheEnvironments)
{
    ASSERT_EQ(setenv("MAILCONFIGDIR", "/etc/tobix", 1), 0);
    EXPECT_EQ(ConfigDirectory(), "/etc/tobix");
    unsetenv("MAILCONFIGDIR");
    EXPECT_EQ(ConfigDirectory(), "");
}

} // namespace
