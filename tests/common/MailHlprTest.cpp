#include "Common/MailHlpr.h"
#include "Bex/CThread.h"
#include "Platform/Errors.h"
#include "support/Becomes.h"
#include "support/CLogRecorder.h"
#include "support/CTemporaryDirectory.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

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
    std::filesystem::current_path("/tmp");
    EXPECT_TRUE(RunPostScript(strDirectory.substr(5).c_str(), "1.eml", false)); // relative
    EXPECT_EQ(directory.Read("out"),
              "1 " + strDirectory + "/a\" b.eml\n1 /x/1.eml\n1 \n1 " + strDirectory + "/1.eml\n");
    EXPECT_THAT(log.Lines(),
                ElementsAre("3 CreateProcess in Common/MailHlpr:57 for \"" + strScript + "\" failed, error = 5",
                            "6 postprocessing-script for \"a\" b.eml\" started",
                            "6 postprocessing-script for \"a\" b.eml\" finished", testing::_, testing::_, testing::_,
                            "6 postprocessing-script for \"\" finished", testing::_, testing::_));
}

/// Waits for a program, as the agent and the delivery threads do.
struct SWaiter : Bex::CThread
{
    explicit SWaiter(std::function<void()> body) : m_body(std::move(body)) {}
    void Body() override { m_body(); }
    const std::function<void()> m_body;
};

TEST(Program, IsNotWaitedForByAThreadThatWasGivenUp)
{
    const CTemporaryDirectory directory;
    const std::string strScript =
        directory.Write("newmail.cmd", ">started\nwhile [ -e started ]; do sleep 0.1; done\n"); // until it is gone
    std::filesystem::permissions(strScript, std::filesystem::perms::owner_all);
    const std::string strDirectory = directory.Path();
    const std::function<void()> bodies[] = {
        [=] { RunPostScript(strDirectory.c_str(), "1.eml", false); },
        [=] { EXPECT_EQ(RunCommand(strScript.c_str(), strDirectory.c_str()), Platform::SYS_TIMEOUT); }};
    for (const auto& body : bodies) {
        std::filesystem::remove(directory / "started");
        auto pThread = std::make_unique<SWaiter>(body);
        ASSERT_TRUE(pThread->Start());
        EXPECT_TRUE(Becomes([&] { return std::filesystem::exists(directory / "started"); }));
        EXPECT_TRUE(pThread->Terminate());
        Bex::CThread::Destroy(std::move(pThread));
        EXPECT_TRUE(Becomes([] { return !Bex::CThread::AnyAbandoned(); }));
    }
}

TEST(RunCommand, GivesTheExitCodeOrTheSystemError)
{
    EXPECT_EQ(RunCommand("sh -c \"exit 7\"", "/"), 7u);
    uint32_t dwResult = 0;
    SWaiter stopped([&] { dwResult = RunCommand("sh -c \"sleep 1; exit 7\"", "/"); });
    ASSERT_TRUE(stopped.Start());
    EXPECT_TRUE(stopped.Stop(60'000));
    EXPECT_EQ(dwResult, 7u);
    EXPECT_EQ(RunCommand("no-such-program-anywhere", "/"), Platform::SYS_FILE_NOT_FOUND);
    EXPECT_EQ(RunCommand("true", "/no-such-directory"), Platform::SYS_DIRECTORY);
}

} // namespace
