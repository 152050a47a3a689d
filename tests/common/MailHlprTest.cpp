#include "Common/MailHlpr.h"
#include "Platform/Errors.h"
#include "support/CLogRecorder.h"
#include "support/CTemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

TEST(PostScript, RunsInItsDirectoryWithTheFilesPath)
{
    const CTemporaryDirectory directory;
    const std::string strDirectory = directory.Path();
    const CLogRecorder log;
    EXPECT_TRUE(RunPostScript(strDirectory.c_str(), "1.eml", false));
    EXPECT_THAT(log.Lines(), IsEmpty()); // there is none
    const std::string strScript = directory.Write("newmail.cmd", "echo \"$# $1\" >>out\n");
    EXPECT_FALSE(RunPostScript(strDirectory.c_str(), "1.eml", false)); // not executable
    std::filesystem::permissions(strScript, std::filesystem::perms::owner_all);
    EXPECT_TRUE(RunPostScript(strDirectory.c_str(), "a\" b.eml", false));
    EXPECT_TRUE(RunPostScript(strDirectory.c_str(), "/x/1.eml", false));
    EXPECT_TRUE(RunPostScript(strDirectory.c_str(), "", false));
    EXPECT_EQ(directory.Read("out"), "1 " + strDirectory + "/a\" b.eml\n1 /x/1.eml\n1 \n");
    EXPECT_THAT(log.Lines(),
                ElementsAre("3 CreateProcess in Common/MailHlpr:57 for \"" + strScript + "\" failed, error = 5",
                            "6 postprocessing-script for \"a\" b.eml\" started",
                            "6 postprocessing-script for \"a\" b.eml\" finished", testing::_, testing::_, testing::_,
                            "6 postprocessing-script for \"\" finished"));
}

TEST(MailPrograms, AreLookedForByNameAndTheirAbsenceIsLogged)
{
    const CTemporaryDirectory directory;
    const CLogRecorder log;
    RunSpamTagger(directory.Path().c_str(), "1.eml", false);
    EXPECT_THAT(log.Lines(), ElementsAre(MatchesRegex(
                                 "3 CreateProcess in Common/MailHlpr:100 for \".*spamscan.exe\" failed, error = 2")));
}

TEST(RunCommand, GivesTheExitCodeOrTheSystemError)
{
    EXPECT_EQ(RunCommand("sh -c \"exit 7\"", "/"), 7u);
    EXPECT_EQ(RunCommand("no-such-program-anywhere", "/"), Platform::SYS_FILE_NOT_FOUND);
    EXPECT_EQ(RunCommand("true", "/no-such-directory"), Platform::SYS_DIRECTORY);
}

} // namespace
