#include "CAccountWorld.h"
#include "Common/CConfigCheck.h"
#include "Common/CMailFilter.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <utility>

using Bex::CSimpleString;

namespace {

TEST(DomainsTest, LocalIsTheListedDomainAndNothingBelowIt)
{
    const CAccountWorld world({}, "One.Example  # ours\ntwo.example\nONE.example\n");
    for (const char* pszLocal : {"ann@ONE.EXAMPLE", "ann", "@two.example", "one.example"})
        EXPECT_TRUE(IsLocalAddress(pszLocal)) << pszLocal;
    for (const char* pszRemote :
         {"", "ann@", "ann@sub.one.example", "ann@b@two.example", "ann@two.example ", "ann@two.example@x"})
        EXPECT_FALSE(IsLocalAddress(pszRemote)) << pszRemote;

    const CSimpleString* pFound = nullptr; // the first, then what follows it
    for (const char* pszDomain : {"One.Example", "ONE.example"}) {
        pFound = LocalDomains().FindDomain("one.example", pFound);
        ASSERT_NE(pFound, nullptr);
        EXPECT_EQ(*pFound, pszDomain);
    }
    EXPECT_EQ(LocalDomains().FindDomain("one.example", pFound), nullptr);
    LocalDomains().Append("three.example");
    EXPECT_TRUE(IsLocalAddress("ann@three.example"));
}

TEST(MailFilterTest, FirstPhraseThatOccursIsTheReason)
{
    const CTemporaryDirectory directory;
    CMailFilter filter;
    ASSERT_TRUE(filter.Load(CSimpleString(directory.Write("filters", "Cheap Pills\nWatch # sold\npills\n"))));
    const std::string strLong(65530, 'x'); // what follows lies in two windows
    // null: passes
    const std::pair<std::string, const char*> CASES[] = {
        {"Subject: buy CHEAP pills\r\n\r\nx", "cheap pills"},
        {"Subject: a WATCH here\r\n\r\nx", "watch "},
        {"Subject: a watch\r\n\r\nx", nullptr},
        {"Content-Type: text/html\r\n\r\n<b>Pills</b>", "pills"},
        {"Subject: pill\r\nContent-Type: text/plain\r\n\r\ns", nullptr},
        {"Content-Type: text/plain\r\n\r\n" + strLong + "Cheap pills", "cheap pills"},
        {"Content-Type: text/plain\r\n\r\nPILLS" + strLong + "a watch ", "watch "}};
    for (const auto& [strMail, pszReason] : CASES) {
        CMail mail;
        ASSERT_TRUE(mail.Parse(strMail));
        CSimpleString strReason;
        EXPECT_EQ(filter.ContentFilterMatch(mail, strReason), pszReason != nullptr) << strMail.substr(0, 50);
        EXPECT_EQ(strReason, CSimpleString(pszReason));
    }
}

TEST(ConfigKeysTest, ManualPrintsTheTables)
{
    std::string strExpected;
    const auto addRow = [&strExpected](const Bex::SConfigKey& key) {
        const std::string strQuote = key.whenMissing.bOtherKey ? "`" : "";
        strExpected += std::string("| `") + key.pszName + "` | " + strQuote + key.whenMissing.pszText + strQuote +
                       " | " + key.pszMeaning + " |\n";
    };
    std::ranges::for_each(Keys::TABLE, addRow);
    std::ranges::for_each(AccountKeys::TABLE, addRow);
    std::string strPrinted;
    std::ifstream manual(TOBIX_SOURCE_DIR "/docs/configuration.md");
    for (std::string strLine; std::getline(manual, strLine);) {
        if (strLine.starts_with("| `"))
            strPrinted += strLine + "\n";
    }
    EXPECT_EQ(strPrinted, strExpected);
}

TEST(ConfigKeysTest, ReadsValuesAndTellsKeysThatItDoesNotKnow)
{
    const CTemporaryDirectory directory;
    const CSimpleString strPath(directory.Write("tobix.cfg", "QueueDir: d:\\q\\in #\ntimeout: 100\n\nUseTLS: yes\n"
                                                             "UseTLS: 1\nLogHost:\nTimeout 2\nAsyncScripts: 0\n"));
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
    std::string strProblems;
    for (const CConfigCheck::SProblem& problem : config.Problems())
        strProblems += std::to_string(static_cast<int>(problem.problem)) + " " + std::to_string(problem.nLine) + ": " +
                       problem.strKey.Text() + "=" + problem.strValue.Text() + "\n";
    EXPECT_EQ(strProblems, "0 2: timeout=\n3 4: UseTLS=yes\n1 5: UseTLS=\n2 7: Timeout 2=\n");
}

} // namespace
