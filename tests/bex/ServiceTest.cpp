#include "Platform/CControlSource.h"
#include "Platform/ServiceStatus.h"
#include "Platform/ServiceUnit.h"

#include <gmock/gmock.h>

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
constexpr const char PAUSED[] = "READY=1\nSTATUS=Paused";

/// A service manager that hears what the service tells of itself.
class ServiceTest : public testing::Test
{
protected:
    void Hears(std::initializer_list<const char*> expected)
    {
        for (const char* pszExpected : expected)
            EXPECT_EQ(m_manager.Next(), pszExpected);
    }
    const CTemporaryDirectory m_directory;
    const CNotifySocket m_manager{m_directory / "notify"};
    const std::vector<std::string> m_environment{m_manager.Variable()};
};

TEST_F(ServiceTest, AManagerThatReadsNothingHoldsNothingUp)
{
    setenv("NOTIFY_SOCKET", (m_directory / "notify").c_str(), 1);
    while (Platform::ReportWork("busy")) { // until its queue is full
    }
    EXPECT_FALSE(Platform::ReportAlive());
    EXPECT_FALSE(Platform::ReportServiceStatus({}));
    unsetenv("NOTIFY_SOCKET");
}

TEST_F(ServiceTest, TellsTheManagerOfEveryTransition)
{
    CTalkingChild child(SERVICE, {"-c", "other.cfg", "result", "7"}, m_environment);
    EXPECT_EQ(child.Line(), "start other.cfg");
    Hears({STARTING, READY});
    EXPECT_EQ(child.Line(), "run");
    child.SendControl(Platform::CONTROL_PAUSE);
    EXPECT_EQ(child.Line(), "pause");
    Hears({"STATUS=Pausing", PAUSED});
    child.Send(SIGUSR1);
    EXPECT_EQ(child.Line(), "pause again");
    Hears({"STATUS=Pausing", PAUSED});
    child.Send(SIGUSR2);
    EXPECT_EQ(child.Line(), "continue");
    Hears({"STATUS=Continuing", READY});
    child.Send(SIGUSR2); // not paused: nothing
    child.Send(SIGHUP);
    EXPECT_THAT(m_manager.Next(), StartsWith("RELOADING=1\nMONOTONIC_USEC="));
    EXPECT_EQ(child.Line(), "custom 129");
    Hears({READY});
    child.Send(SIGPIPE);  // nothing
    child.Send(SIGRTMIN); // nothing without a number
    child.SendControl(200);
    EXPECT_EQ(child.Line(), "custom 200");
    Hears({READY});
    child.Send(SIGTERM); // kept if the other is still busy
    EXPECT_EQ(child.Rest(), "stop\n");
    Hears({STOPPING, "STOPPING=1\nSTATUS=Stopped, error 1066 (7)"});
    EXPECT_EQ(child.ExitCode(), 0);

    CTalkingChild failing(SERVICE, {"fail"}, m_environment);
    EXPECT_EQ(failing.Rest(), "start talker.cfg\n");
    Hears({STARTING, "STOPPING=1\nSTATUS=Stopped"});
    EXPECT_EQ(failing.ExitCode(), 0);
}

TEST_F(ServiceTest, KeepsAStopThatComesWhileItIsBusyAndIgnoresTheRest)
{
    CTalkingChild starting(SERVICE, {"gated"}), pausing(SERVICE, {"gated"});
    pausing.OpenGate();
    pausing.Line();
    pausing.Line();
    pausing.Send(SIGUSR1);
    EXPECT_EQ(pausing.Line(), "pause");
    EXPECT_EQ(starting.Line(), "start talker.cfg");
    for (CTalkingChild* pChild : {&starting, &pausing}) {
        pChild->SendControl(130);
        pChild->Send(SIGTERM);
        pChild->Send(SIGUSR2);
        pChild->OpenGate();
    }
    EXPECT_THAT(starting.Rest(), testing::AnyOf("run\nstop\n", "stop\nrun\n"));
    EXPECT_EQ(pausing.Rest(), "stop\n");
    EXPECT_EQ(starting.ExitCode() + pausing.ExitCode(), 0);
}

TEST_F(ServiceTest, TakesTheNextControlOnceTheManagerKnowsTheEndOfTheLast)
{
    CTalkingChild child(SERVICE, {}, m_environment);
    Hears({STARTING, READY});
    for (int iRound = 0; iRound < 200 && !HasFailure(); ++iRound) {
        child.Send(SIGUSR1);
        Hears({"STATUS=Pausing", PAUSED});
        child.Send(SIGUSR2);
        Hears({"STATUS=Continuing", READY});
    }
    child.Send(SIGPWR);
    EXPECT_THAT(child.Rest(), testing::HasSubstr("\nshutdown\nstop\n"));
}

TEST_F(ServiceTest, StopsAtTheConsoleInOrderWithoutAReport)
{
    for (const int iSignal : {SIGINT, SIGQUIT, SIGPWR, SIGTERM}) {
        CTalkingChild child(SERVICE, {"-DEBUG", "result", "3"}, m_environment);
        child.Line();
        EXPECT_EQ(child.Line(), "run");
        child.Send(SIGHUP); // not from the terminal: the restart
        EXPECT_EQ(child.Line(), "custom 129");
        child.Send(iSignal);
        EXPECT_EQ(child.Rest(), "stop\n") << iSignal;
        EXPECT_EQ(child.ExitCode(), 3) << iSignal;
    }
    CTalkingChild failing(SERVICE, {"-debug", "fail"}, m_environment);
    EXPECT_EQ(failing.Rest(), "start talker.cfg\n");
    EXPECT_EQ(failing.ExitCode(), 1);
    EXPECT_TRUE(m_manager.IsSilent());
}

TEST_F(ServiceTest, ShowsItsUsage)
{
    CTalkingChild child(SERVICE, {"-?"});
    EXPECT_THAT(child.Rest(), testing::ContainsRegex("^Talking Service .*\n------------------------------\n\nUsage: "
                                                     "TALKER.EXE -install.*\\(e.g. \"Talking Service #2\"\\)\n"));
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
    const CTemporaryDirectory m_directory;
    std::string m_strUnits = m_directory.Path();
    const std::filesystem::path m_wants = m_directory / "multi-user.target.wants";
};

TEST_F(InstallTest, InstallsOnceAndAnotherCopyBesideTheFirst)
{
    EXPECT_EQ(Run({"-INSTALL", "Partial"}), "Talking Service installed.\nafter install\n");
    EXPECT_TRUE(is_symlink(m_wants / "talker.service"));
    const std::string strUnit = m_directory.Read("multi-user.target.wants/talker.service");
    for (const std::string strLine :
         {"Description=Talking Service", "Type=notify", "User=tobix", "ExecStart=" TOBIX_BUILD_DIR "/helper_service_me",
          "Environment=MAILCONFIGDIR=/etc/talker", "ReadWritePaths=-" TOBIX_BUILD_DIR, "ReadWritePaths=-/mail/queue",
          "ReadWritePaths=\"-/mail/50%% \\\"full\\\"\"", "ReadWritePaths=-/etc/talker", "ReadWritePaths=-/run/lock",
          "RuntimeDirectory=tobix"})
        EXPECT_THAT(strUnit, HasSubstr('\n' + strLine + '\n'));
    EXPECT_EQ(Run({"-install"}), "Unable to install Talking Service. Service is already installed. Code = 1073\n");

    EXPECT_EQ(Run({"-install", "Talker2", "Talking Service #2", "-c talker2.cfg"}),
              "Talking Service #2 installed.\nafter install\n");
    EXPECT_THAT(m_directory.Read("talker2.service"),
                HasSubstr("\nExecStart=" TOBIX_BUILD_DIR "/helper_service_me -c talker2.cfg\n"));
    EXPECT_EQ(Run({"-uninstall", "Talker2"}), "Talking Service removed.\nafter uninstall\n");
    EXPECT_TRUE(exists(m_wants / "talker.service"));
    EXPECT_EQ(Run({"-uninstall"}), "Talking Service removed.\nafter uninstall\n");
    EXPECT_TRUE(is_empty(m_wants) && remove(m_wants) && is_empty(m_directory.Path()));
    EXPECT_EQ(Run({"-uninstall"}), "Unable to remove Talking Service. You have no priviledges or the service is not "
                                   "installed. Code = 1060\n");
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

TEST(ComposeUnitTest, KeepsTheArguments)
{
    const char* const cases[][2] = {{"", ""},
                                    {"-c a.cfg", " -c a.cfg"},
                                    {"-c \"my file.cfg\"", " -c \"my file.cfg\""},
                                    {"$HOME 5% ; \"\"", " \"$$HOME\" \"5%%\" \";\" \"\""},
                                    {R"(a\b \"q\")", R"( "a\\b" "\"q\"")"}};
    for (const auto& [pszParameters, pszExpected] : cases) {
        Platform::SServiceEntry entry;
        entry.strExecutable = "/opt/my mail/tobix";
        entry.strParameters = pszParameters;
        const std::string strUnit = Platform::ComposeUnit(entry);
        EXPECT_THAT(strUnit, HasSubstr(std::string("\nExecStart=\"/opt/my mail/tobix\"") + pszExpected + '\n'));
        EXPECT_THAT(strUnit, Not(HasSubstr("Environment=")));
    }
}

} // namespace
