#include "Platform/CControlSource.h"
#include "Platform/ServiceUnit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/CTalkingChild.h"
#include "support/CTemporaryDirectory.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char SERVICE[] = "helper_service_me";
constexpr const char STARTING[] = "STATUS=Starting\nEXTEND_TIMEOUT_USEC=1000000";
constexpr const char STOPPING[] = "STOPPING=1\nSTATUS=Stopping\nEXTEND_TIMEOUT_USEC=1000000";
constexpr const char READY[] = "READY=1\nSTATUS=Running";

TEST(ServiceTest, TellsTheManagerOfEveryTransition)
{
    const CTemporaryDirectory directory;
    const CNotifySocket manager(directory / "notify");
    CTalkingChild child(SERVICE, {"-c", "other.cfg"}, {manager.Variable()});
    EXPECT_EQ(child.Line(), "start other.cfg");
    EXPECT_EQ(manager.Next(), STARTING);
    EXPECT_EQ(manager.Next(), READY);
    EXPECT_EQ(child.Line(), "run");

    for (const char* pszPause : {"pause", "pause again"}) {
        child.Send(SIGUSR1);
        EXPECT_EQ(manager.Next(), "STATUS=Pausing");
        EXPECT_EQ(child.Line(), pszPause);
        EXPECT_EQ(manager.Next(), "READY=1\nSTATUS=Paused");
    }
    child.Send(SIGUSR2);
    EXPECT_EQ(manager.Next(), "STATUS=Continuing");
    EXPECT_EQ(child.Line(), "continue");
    EXPECT_EQ(manager.Next(), READY);

    child.Send(SIGUSR2); // not paused: nothing
    child.Send(SIGHUP);
    EXPECT_THAT(manager.Next(), StartsWith("RELOADING=1\nMONOTONIC_USEC="));
    EXPECT_EQ(child.Line(), "custom 129");
    EXPECT_EQ(manager.Next(), READY);

    child.Send(SIGTERM);
    EXPECT_EQ(manager.Next(), STOPPING);
    EXPECT_EQ(child.Rest(), "stop\n");
    EXPECT_EQ(manager.Next(), "STOPPING=1\nSTATUS=Stopped");
    EXPECT_EQ(child.ExitCode(), 0);
}

TEST(ServiceTest, TakesControlsByNumber)
{
    const CTemporaryDirectory directory;
    const CNotifySocket manager(directory / "notify");
    CTalkingChild child(SERVICE, {}, {manager.Variable()});
    while (manager.Next() != READY) {
    }
    child.Line();
    EXPECT_EQ(child.Line(), "run");
    child.Send(SIGRTMIN); // without a number
    child.Send(SIGPIPE);
    child.SendControl(Platform::CONTROL_PAUSE);
    EXPECT_EQ(manager.Next(), "STATUS=Pausing");
    EXPECT_EQ(manager.Next(), "READY=1\nSTATUS=Paused");
    child.SendControl(200);
    child.SendControl(Platform::CONTROL_SHUTDOWN); // kept if the other is still busy
    EXPECT_EQ(child.Rest(), "pause\ncustom 200\nshutdown\nstop\n");
    EXPECT_EQ(child.ExitCode(), 0);
}

TEST(ServiceTest, ShutsDownOnAPowerFailure)
{
    CTalkingChild child(SERVICE, {});
    child.Line();
    child.Line();
    child.Send(SIGPWR);
    EXPECT_EQ(child.Rest(), "shutdown\nstop\n");
    EXPECT_EQ(child.ExitCode(), 0);
}

TEST(ServiceTest, KeepsAStopThatComesDuringStartUpAndIgnoresTheRest)
{
    CTalkingChild child(SERVICE, {"gated"});
    EXPECT_EQ(child.Line(), "start talker.cfg");
    child.Send(SIGUSR1);
    child.Send(SIGTERM);
    child.OpenGate();
    EXPECT_THAT(child.Rest(), testing::AnyOf("run\nstop\n", "stop\nrun\n"));
    EXPECT_EQ(child.ExitCode(), 0);
}

TEST(ServiceTest, KeepsAStopThatComesDuringAnotherControlAndIgnoresTheRest)
{
    CTalkingChild child(SERVICE, {"gated"});
    child.OpenGate();
    child.Line();
    child.Line();
    child.Send(SIGUSR1);
    EXPECT_EQ(child.Line(), "pause");
    child.SendControl(130);
    child.Send(SIGTERM);
    child.Send(SIGUSR2);
    child.OpenGate();
    EXPECT_EQ(child.Rest(), "stop\n");
    EXPECT_EQ(child.ExitCode(), 0);
}

TEST(ServiceTest, TakesTheNextControlOnceTheManagerKnowsTheEndOfTheLast)
{
    const CTemporaryDirectory directory;
    const CNotifySocket manager(directory / "notify");
    CTalkingChild child(SERVICE, {}, {manager.Variable()});
    while (manager.Next() != READY) {
    }
    for (int iRound = 0; iRound < 200; ++iRound) {
        child.Send(SIGUSR1);
        ASSERT_EQ(manager.Next(), "STATUS=Pausing");
        ASSERT_EQ(manager.Next(), "READY=1\nSTATUS=Paused");
        child.Send(SIGUSR2);
        ASSERT_EQ(manager.Next(), "STATUS=Continuing");
        ASSERT_EQ(manager.Next(), READY);
    }
}

TEST(ServiceTest, ReportsFailures)
{
    const CTemporaryDirectory directory;
    const CNotifySocket manager(directory / "notify");
    CTalkingChild failing(SERVICE, {"fail"}, {manager.Variable()});
    EXPECT_EQ(failing.Rest(), "start talker.cfg\n");
    EXPECT_EQ(failing.ExitCode(), 0);
    EXPECT_EQ(manager.Next(), STARTING);
    EXPECT_EQ(manager.Next(), "STOPPING=1\nSTATUS=Stopped");

    CTalkingChild child(SERVICE, {"result", "7"}, {manager.Variable()});
    child.Line();
    child.Line();
    child.Send(SIGTERM);
    child.Rest();
    EXPECT_EQ(child.ExitCode(), 0);
    for (const std::string strExpected : {STARTING, READY, STOPPING, "STOPPING=1\nSTATUS=Stopped, error 1066 (7)"})
        EXPECT_EQ(manager.Next(), strExpected);
}

class ConsoleTest : public testing::TestWithParam<int>
{};

TEST_P(ConsoleTest, StopsInOrderWithoutAReport)
{
    const CTemporaryDirectory directory;
    const CNotifySocket manager(directory / "notify");
    CTalkingChild child(SERVICE, {"-DEBUG", "result", "3"}, {manager.Variable()});
    child.Line();
    EXPECT_EQ(child.Line(), "run");
    child.Send(SIGHUP); // not from the terminal: the restart
    EXPECT_EQ(child.Line(), "custom 129");
    child.Send(GetParam());
    EXPECT_EQ(child.Rest(), "stop\n");
    EXPECT_EQ(child.ExitCode(), 3);
    EXPECT_TRUE(manager.IsSilent());
}
INSTANTIATE_TEST_SUITE_P(Signals, ConsoleTest, testing::Values(SIGINT, SIGQUIT, SIGPWR, SIGTERM));

TEST(ServiceTest, LeavesAConsoleStartUpThatFailsWithOne)
{
    CTalkingChild child(SERVICE, {"-debug", "fail"});
    EXPECT_EQ(child.Rest(), "start talker.cfg\n");
    EXPECT_EQ(child.ExitCode(), 1);
}

TEST(ServiceTest, ShowsItsUsage)
{
    CTalkingChild child(SERVICE, {"-?"});
    const std::string strUsage = child.Rest();
    EXPECT_THAT(strUsage, StartsWith("Talking Service "));
    EXPECT_THAT(strUsage, HasSubstr("\n------------------------------\n\nUsage: TALKER.EXE -install|-uninstall|-debug "
                                    "[<shortname> <displayname> <params>] \n\n  -install ["));
    EXPECT_THAT(strUsage, HasSubstr("(e.g. \"Talker2\")\n      <displayname>:\n          displayer service name "
                                    "(e.g. \"Talking Service #2\")\n"));
    EXPECT_EQ(child.ExitCode(), 0);
}

/// A unit directory of the test's own.
class InstallTest : public testing::Test
{
protected:
    std::string Run(const std::vector<std::string>& arguments)
    {
        CTalkingChild child(SERVICE, arguments, {"TOBIX_UNIT_DIR=" + m_strUnits, "MAILCONFIGDIR=/etc/talker"});
        std::string strOutput = child.Rest();
        EXPECT_EQ(child.ExitCode(), 0);
        return strOutput;
    }
    bool Exists(const std::string& strName) const
    {
        return std::filesystem::is_symlink(m_directory / ("multi-user.target.wants/" + strName)) &&
               std::filesystem::exists(m_directory / ("multi-user.target.wants/" + strName));
    }

    const CTemporaryDirectory m_directory;
    std::string m_strUnits = m_directory.Path();
};

TEST_F(InstallTest, InstallsOnceAndRemoves)
{
    EXPECT_EQ(Run({"-INSTALL", "Partial"}), "Talking Service installed.\nafter install\n");
    EXPECT_TRUE(Exists("talker.service"));
    const std::string strUnit = m_directory.Read("talker.service");
    for (const std::string strLine :
         {"Description=Talking Service", "Type=notify", "User=tobix", "ExecStart=" TOBIX_BUILD_DIR "/helper_service_me",
          "Environment=MAILCONFIGDIR=/etc/talker", "ReadWritePaths=-" TOBIX_BUILD_DIR, "ReadWritePaths=-/mail/queue",
          "ReadWritePaths=\"-/mail/50%% \\\"full\\\"\"", "ReadWritePaths=-/etc/talker", "ReadWritePaths=-/run/lock"})
        EXPECT_THAT(strUnit, HasSubstr('\n' + strLine + '\n'));

    EXPECT_EQ(Run({"-install"}), "Unable to install Talking Service. Service is already installed. Code = 1073\n");
    EXPECT_EQ(Run({"-uninstall"}), "Talking Service removed.\nafter uninstall\n");
    EXPECT_TRUE(std::filesystem::is_empty(m_directory / "multi-user.target.wants"));
    EXPECT_FALSE(std::filesystem::exists(m_directory / "talker.service"));
    EXPECT_EQ(Run({"-uninstall"}), "Unable to remove Talking Service. You have no priviledges or the service is not "
                                   "installed. Code = 1060\n");
}

TEST_F(InstallTest, InstallsAnotherCopyBesideTheFirst)
{
    Run({"-install"});
    EXPECT_EQ(Run({"-install", "Talker2", "Talking Service #2", "-c talker2.cfg"}),
              "Talking Service #2 installed.\nafter install\n");
    EXPECT_THAT(m_directory.Read("talker2.service"),
                HasSubstr("\nExecStart=" TOBIX_BUILD_DIR "/helper_service_me -c talker2.cfg\n"));
    EXPECT_EQ(Run({"-uninstall", "Talker2"}), "Talking Service removed.\nafter uninstall\n");
    EXPECT_TRUE(Exists("talker.service"));
    EXPECT_FALSE(std::filesystem::exists(m_directory / "talker2.service"));
}

TEST_F(InstallTest, RefusesWhatCannotBeAUnit)
{
    EXPECT_EQ(Run({"-install", "../evil", "Evil", ""}),
              "Unable to install Evil. Could not create the service entry. Code = 123\n");
    EXPECT_THAT(Run({"-install", "Evil", "Evil\nUser=root", ""}), HasSubstr("Could not create the service entry"));
    EXPECT_TRUE(std::filesystem::is_empty(m_directory.Path()));
    m_strUnits += "/missing";
    EXPECT_EQ(Run({"-install"}),
              "Unable to install Talking Service. Could not open the service control manager. Code = 2\n");
}

struct SCommandLineCase
{
    const char* pszParameters;
    const char* pszExpected;
};
class CommandLineTest : public testing::TestWithParam<SCommandLineCase>
{};

TEST_P(CommandLineTest, KeepsTheArguments)
{
    Platform::SServiceEntry entry;
    entry.strExecutable = "/opt/my mail/tobix";
    entry.strParameters = GetParam().pszParameters;
    EXPECT_THAT(Platform::ComposeUnit(entry),
                HasSubstr(std::string("\nExecStart=\"/opt/my mail/tobix\"") + GetParam().pszExpected + '\n'));
    EXPECT_THAT(Platform::ComposeUnit(entry), Not(HasSubstr("Environment=")));
}
INSTANTIATE_TEST_SUITE_P(Parameters, CommandLineTest,
                         testing::Values(SCommandLineCase{"", ""}, SCommandLineCase{"-c a.cfg", " -c a.cfg"},
                                         SCommandLineCase{"-c \"my file.cfg\"", " -c \"my file.cfg\""},
                                         SCommandLineCase{"$HOME 5% ; \"\"", " \"$$HOME\" \"5%%\" \";\" \"\""},
                                         SCommandLineCase{R"(a\b \"q\")", R"( "a\\b" "\"q\"")"}));

} // namespace
