#include "Tobix/Bounce.h"
#include "Bex/CThread.h"
#include "Common/Globals.h"
#include "support/Becomes.h"
#include "support/CLogRecorder.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>

/// The options of each program that is started, behind the mail and its report, as these keys say.
TEST(BounceTest, StartsTheResponderAsTheKeysSay)
{
    using Keys = std::map<std::string, std::string>;
    const std::string strStart = "3 SystemCall( \"responder.exe \"/nowhere/a b.eml\" -t \"/nowhere/a b.eml.err\" ";
    for (const auto& [keys, options] : std::vector<std::pair<Keys, std::vector<std::string>>>{
             {{}, {"-ib -s -o"}},
             {{{"Bounce.Attachment", "1"}}, {"-b full -ib -s -o"}},
             {{{"BounceAttachment", "1"}}, {"-b full -ib -s -o"}},
             {{{"Bounce.Attachment", "0"}, {"BounceAttachment", "1"}}, {"-ib -s -o"}},
             {{{"Bounce.Bulk", "0"}}, {"-s -o"}},
             {{{"Postmaster", "pm@x"}}, {"-ib -s -k -o", "-ib -s -to pm@x -o"}},
             {{{"Postmaster", "pm@x"}, {"Postmaster.To", ""}}, {"-ib -s -o"}},
             {{{"Postmaster", "pm@x"}, {"Postmaster.To", "to@x"}, {"Bounce.Attachment", "1"}, {"Bounce.Bulk", "0"}},
              {"-b full -s -k -o", "-b header -s -to to@x -o"}}}) {
        for (const auto& [strKey, strValue] : keys)
            Config().Set(strKey.c_str(), strValue.c_str());
        const CLogRecorder log;
        CHeldMailFile file;
        EXPECT_TRUE(
            Bounce("/nowhere/a b.eml", file, "/")); // as there is no such mail, each program fails and is logged
        Config().RemoveAll();
        std::vector<std::string> expected, lines = log.Lines();
        for (const std::string& strOptions : options)
            expected.push_back(strStart + strOptions + "\" )");
        for (std::string& strLine : lines)
            strLine.erase(std::min(strLine.find(" failed at "), strLine.size()));
        EXPECT_EQ(lines, expected);
    }
}

TEST(BounceTest, TellsThePostmasterThoughAStopComesBehindTheSender)
{
    struct CBouncer : Bex::CThread
    {
        void Body() override
        {
            CHeldMailFile file;
            EXPECT_TRUE(Bounce("/nowhere/x.eml", file, "/"));
        }
    } bouncer;
    Config().Set("Postmaster", "pm@x");
    CLogRecorder log;
    log.SetListener([&](const std::string&) { bouncer.RequestStop(); });
    ASSERT_TRUE(bouncer.Start());
    EXPECT_TRUE(Becomes([&] { return log.Contains("-to pm@x"); }));
    EXPECT_TRUE(Becomes([&] { return bouncer.Stop(); }));
    Config().RemoveAll();
}
