#include "Tobix/Bounce.h"
#include "Common/Globals.h"
#include "support/CLogRecorder.h"
#include "support/RowName.h"

#include <gtest/gtest.h>
#include <map>

struct BounceCase
{
    const char* pszName;
    std::map<std::string, std::string> keys;
    std::vector<std::string> options; ///< of each program that is started, behind the mail and its report
};
class BounceTest : public testing::TestWithParam<BounceCase>
{};
TEST_P(BounceTest, StartsTheResponderAsTheKeysSay)
{
    const CLogRecorder log;
    for (const auto& [strKey, strValue] : GetParam().keys)
        Config().Set(strKey.c_str(), strValue.c_str());
    EXPECT_TRUE(Bounce("/nowhere/a b.eml", "/")); // as there is no such mail, each program fails and is logged
    Config().RemoveAll();
    const std::vector<std::string> lines = log.Lines();
    ASSERT_EQ(lines.size(), GetParam().options.size());
    for (size_t n = 0; n < lines.size(); ++n) {
        EXPECT_EQ(lines[n].substr(0, lines[n].find(" failed at ")),
                  "3 SystemCall( \"responder.exe \"/nowhere/a b.eml\" -t \"/nowhere/a b.eml.err\" " +
                      GetParam().options[n] + "\" )");
    }
}
INSTANTIATE_TEST_SUITE_P(
    Keys, BounceTest,
    testing::Values(
        BounceCase{"None", {}, {"-ib -s -o"}},
        BounceCase{"Attachment", {{"Bounce.Attachment", "1"}}, {"-b full -ib -s -o"}},
        BounceCase{"OldAttachment", {{"BounceAttachment", "1"}}, {"-b full -ib -s -o"}},
        BounceCase{"NoAttachment", {{"Bounce.Attachment", "0"}, {"BounceAttachment", "1"}}, {"-ib -s -o"}},
        BounceCase{"NoBulk", {{"Bounce.Bulk", "0"}}, {"-s -o"}},
        BounceCase{"Postmaster", {{"Postmaster", "pm@x"}}, {"-ib -s -k -o", "-ib -s -to pm@x -o"}},
        BounceCase{"NoPostmaster", {{"Postmaster", "pm@x"}, {"Postmaster.To", ""}}, {"-ib -s -o"}},
        BounceCase{
            "All",
            {{"Postmaster", "pm@x"}, {"Postmaster.To", "to@x"}, {"Bounce.Attachment", "1"}, {"Bounce.Bulk", "0"}},
            {"-b full -s -k -o", "-b header -s -to to@x -o"}}),
    ROW_NAME);
