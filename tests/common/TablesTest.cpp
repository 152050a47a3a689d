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

TEST(MailFilterTest, FirstPhraseThatOccursIsTheReason)
{
    const CTemporaryDirectory directory;
    CMailFilter filter;
    ASSERT_TRUE(filter.Load(CSimpleString(directory.Write("filters", "Cheap Pills\nWatch # sold\npills\n"))));
    const std::string strLong(65530, 'x'); // what follows lies in two windows
    struct
    {
        std::string mail;
        const char* reason; ///< null: passes
    } const cases[] = {{"Subject: buy CHEAP pills\r\n\r\nx", "cheap pills"},
                       {"Subject: a WATCH here\r\n\r\nx", "watch "},
                       {"Subject: a watch\r\n\r\nx", nullptr},
                       {"Content-Type: text/html\r\n\r\n<b>Pills</b>", "pills"},
                       {"Content-Type: Text/plain\r\n\r\npills", nullptr},
                       {"Content-Type: application/pdf\r\n\r\npills", nullptr},
                       {"Subject: pill\r\nContent-Type: text/plain\r\n\r\ns", nullptr},
                       {"Content-Type: text/plain\r\n\r\n" + strLong + "Cheap pills", "cheap pills"},
                       {"Content-Type: text/plain\r\n\r\nPILLS" + strLong + "a watch ", "watch "}};
    for (const auto& one : cases) {
        CMail mail;
        ASSERT_TRUE(mail.Parse(one.mail));
        CSimpleString strReason;
        EXPECT_EQ(filter.ContentFilterMatch(mail, strReason), one.reason != nullptr) << one.mail.substr(0, 50);
        EXPECT_EQ(strReason, CSimpleString(one.reason)) << one.mail.substr(0, 50);
    }
}

/// A key's row in the manual.
std::string RowOf(const Bex::SConfigKey& key)
{
    const char* const pszQuote = key.whenMissing.bOtherKey ? "`" : "";
    return std::string("| `") + key.pszName + "` | " + pszQuote + key.whenMissing.pszText + pszQuote + " | " +
           key.pszMeaning + " |";
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

TEST(ConfigKeysTest, ReadsValuesAndTellsKeysThatItDoesNotKnow)
{
    const CTemporaryDirectory directory;
    const CSimpleString strPath(directory.Write("tobix.cfg", "QueueDir: d:\\q\\in #\ntimeout: 100\n\nUseTLS: yes\n"
                                                             "UseTLS: 1\nLogHost:\nTimeout: 2\nAsyncScripts: 0\n"));
    CConfigCheck config(Keys::TABLE);
    ASSERT_TRUE(config.Load(strPath));
    EXPECT_EQ(config.GetPath(Keys::QUEUE_DIR), "/q/in");
    EXPECT_EQ(config.GetPath(Keys::ERROR_DIR), "/mail/error");
    EXPECT_EQ(config.GetInt(Keys::TIME_OUT), 90);
    EXPECT_FALSE(config.GetFlag(Keys::USE_TLS));
    EXPECT_EQ(config.GetString(Keys::TRAFFIC_LOG_HOST), "") << "an empty value is no missing one";
    EXPECT_EQ(config.GetInt(Keys::TRAFFIC_LOG_PORT), 514);
    EXPECT_FALSE(config.GetFlag(Keys::SCRIPTS_IN_PARALLEL));
    config.Set("Scripts.Execution.Parallel", "1");
    EXPECT_TRUE(config.GetFlag(Keys::SCRIPTS_IN_PARALLEL));
    std::vector<std::pair<uint32_t, std::string>> unknown;
    for (const CConfigCheck::SUnknownKey& key : config.UnknownKeys())
        unknown.emplace_back(key.nLine, key.strKey.Text());
    EXPECT_THAT(unknown, testing::ElementsAre(testing::Pair(2, "timeout"), testing::Pair(7, "Timeout")));
}

TEST(GlobalsTest, ConfigurationDirectoryIsTheEnvironments)
{
    ASSERT_EQ(setenv("MAILCONFIGDIR", "/etc/tobix", 1), 0);
    EXPECT_EQ(ConfigDirectory(), "/etc/tobix");
    unsetenv("MAILCONFIGDIR");
    EXPECT_EQ(ConfigDirectory(), "");
}

} // namespace
