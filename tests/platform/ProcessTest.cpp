#include "Platform/CChildProcess.h"
#include "Platform/CEventHandle.h"
#include "Platform/CInjectedFault.h"
#include "Platform/CommandLine.h"
#include "Platform/Errors.h"
#include "support/Becomes.h"
#include "support/CTemporaryDirectory.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

using namespace Platform;
using testing::ElementsAreArray;

namespace {

TEST(SplitCommandLineTest, GivesTheArguments)
{
    const std::pair<const char*, std::vector<std::string>> CASES[] = {
        {" \t ", {}},
        {"a  b\tc ", {"a", "b", "c"}},
        {R"(p "/a b/1.eml" -t "" -k)", {"p", "/a b/1.eml", "-t", "", "-k"}},
        {R"(c:\a\\b "d\e f")", {R"(c:\a\\b)", R"(d\e f)"}},
        {R"(\"a\" "b\"c" "d\\" e)", {"\"a\"", "b\"c", "d\\", "e"}},
        {R"(a"b c"d "e""f" \\\"g)", {"ab cd", "e\"f", "\\\"g"}},
        {R"("open end\)", {R"(open end\)"}}};
    for (const auto& [pszText, arguments] : CASES)
        EXPECT_THAT(SplitCommandLine(pszText), ElementsAreArray(arguments));
}

TEST(QuoteArgumentTest, IsUndoneBySplitting)
{
    const std::vector<std::string> arguments{"", "a b", "\"", "\\", "a\\\\\"b\\", "x\ny", "\\\"\"\\"};
    std::string strCommandLine;
    for (const std::string& strArgument : arguments)
        strCommandLine += QuoteArgument(strArgument) + " ";
    EXPECT_THAT(SplitCommandLine(strCommandLine), ElementsAreArray(arguments));
}

class ProcessTest : public testing::Test
{
protected:
    std::string Script(const std::string& strName, const std::string& strText, mode_t mode = 0755) const
    {
        const std::string strPath = m_world.Write(strName, strText);
        chmod(strPath.c_str(), mode);
        return strPath;
    }
    static uint32_t Run(std::string_view strProgram, const std::string& strCommandLine, const char* pszDirectory)
    {
        const auto pChild = CChildProcess::Start(strProgram, strCommandLine, pszDirectory);
        uint32_t dwExitCode = 999;
        EXPECT_TRUE(pChild && pChild->Wait(INFINITE) && pChild->ExitCode(dwExitCode));
        return dwExitCode;
    }
    const CTemporaryDirectory m_world;
};

/// Here a script without an interpreter line, under the shell.
TEST_F(ProcessTest, ChildStartsInASessionWithCleanSignalsItsDirectoryAndNothingToRead)
{
    sigset_t blocked, before;
    sigfillset(&blocked);
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    const auto ignored = signal(SIGPIPE, SIG_IGN);
    std::filesystem::create_directory(m_world / "there");
    // The last digits: the C library keeps two signals of its own ignored in every child.
    const std::string strScript = Script("s.cmd", "{ pwd; cat; printf '<%s>' \"$0\" \"$@\"; echo\n"
                                                  "sed -nE 's/^Sig(Blk|Ign).*(.{7})$/\\1 \\2/p' /proc/self/status\n"
                                                  "read -r pid name state parent group session rest < /proc/$$/stat\n"
                                                  "[ $session = $$ ] && echo own session; } > out\nexit 7\n");
    EXPECT_EQ(Run(strScript, "s.cmd \"x y\" \"\"", (m_world / "there").c_str()), 7u);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    signal(SIGPIPE, ignored);
    EXPECT_EQ(m_world.Read("there/out"),
              m_world / "there" + "\n<" + strScript + "><x y><>\nBlk 0000000\nIgn 0000000\nown session\n");
}

TEST_F(ProcessTest, BareNameIsFoundBesideTheExecutableThenInTheWorkingDirectoryThenAlongThePath)
{
    const std::string strName = "tobix-search-" + std::to_string(getpid()) + ".exe";
    const auto beside = std::filesystem::read_symlink("/proc/self/exe").parent_path() / strName;
    const auto workingDirectory = std::filesystem::current_path();
    const std::string strPath = getenv("PATH");
    std::filesystem::create_directory(m_world / "child");
    Script("path/" + strName, "exit 1");
    setenv("PATH", ("/nowhere::" + (m_world / "path") + ":" + strPath).c_str(), 1);
    EXPECT_EQ(Run("", strName + " x", (m_world / "child").c_str()), 1u);
    Script("cwd/" + strName, "exit 2");
    std::filesystem::current_path(m_world / "cwd");
    EXPECT_EQ(Run("", strName + " x", (m_world / "child").c_str()), 2u);
    EXPECT_EQ(Run("", "./" + strName, (m_world / "child").c_str()), 2u); // of the daemon's directory, not the child's
    std::filesystem::copy(Script("beside", "exit 3"), beside);
    EXPECT_EQ(Run("", strName + " x", (m_world / "child").c_str()), 3u);
    std::filesystem::remove(beside);
    std::filesystem::current_path(workingDirectory);
    setenv("PATH", strPath.c_str(), 1);
}

TEST_F(ProcessTest, FailureToStartIsToldExactly)
{
    const std::string strPlain = Script("plain", "exit 0", 0644);
    const std::string strLost = Script("lost", "#!/no/such/interpreter\n");
    const std::string strGood = Script("good", "exit 0");
    const std::string strMissing = m_world / "missing", strNul("good \0-x", 8);
    for (const auto& [strProgram, strCommandLine, strDirectory, dwExpected] :
         std::vector<std::tuple<std::string, std::string, std::string, uint32_t>>{
             {"", "tobix-no-such-program", "", SYS_FILE_NOT_FOUND},
             {"", strMissing, "", SYS_FILE_NOT_FOUND},
             {strPlain, "plain", "", SYS_ACCESS_DENIED},
             {m_world.Path(), "directory", "", SYS_ACCESS_DENIED},
             {strLost, "lost", "", SYS_FILE_NOT_FOUND},
             {strGood, "good", strMissing, SYS_DIRECTORY},
             {strGood, strNul, "", SYS_INVALID_PARAMETER},
             {"", " ", "", SYS_INVALID_PARAMETER}}) {
        SetLastError({});
        EXPECT_EQ(CChildProcess::Start(strProgram, strCommandLine, strDirectory.c_str()), nullptr);
        EXPECT_EQ(LastError().dwSysError, dwExpected) << strProgram << " " << strCommandLine;
    }
    const CInjectedFault fault(EFault::CreateProcess, 1, ENOMEM);
    EXPECT_EQ(CChildProcess::Start(strGood, "", nullptr), nullptr);
    EXPECT_EQ(LastError().dwSysError, SYS_NO_MEMORY);
    EXPECT_EQ(Run(strGood, "", nullptr), 0u);
}

/// Also where the kernel gives no descriptor for it.
TEST_F(ProcessTest, EndOfTheChildIsWaitedForAndItsKindTold)
{
    const CInjectedFault fault(EFault::OpenProcess, 2, EMFILE, 100);
    const auto pChild = CChildProcess::Start("", "sleep 60", nullptr);
    ASSERT_NE(pChild, nullptr);
    uint32_t dwExitCode = 0;
    EXPECT_FALSE(pChild->ExitCode(dwExitCode));
    EXPECT_FALSE(pChild->Wait(20));
    EXPECT_TRUE(pChild->Terminate() && pChild->Wait(INFINITE) && pChild->ExitCode(dwExitCode));
    EXPECT_EQ(dwExitCode, 0xFFFFFFFFu);
    EXPECT_EQ(Run("", "sh -c \"kill -TERM $$\"", nullptr), 0x80u + SIGTERM);

    const auto pEnded = CChildProcess::Start("", "sh -c \"exit 5\"", nullptr);
    ASSERT_TRUE(pEnded->Wait(INFINITE));
    EXPECT_TRUE(pEnded->Terminate() && pEnded->ExitCode(dwExitCode)); // too late to change what happened
    EXPECT_EQ(dwExitCode, 5u);
}

TEST_F(ProcessTest, ForgottenChildrenLeaveNoZombies)
{
    const CInjectedFault fault(EFault::OpenProcess, 1, EMFILE, 3);
    std::vector<unsigned> ids;
    for (int i = 0; i < 10; ++i)
        ids.push_back(CChildProcess::Start("", "sleep 0.05", nullptr)->Id());
    for (const unsigned dwId : ids)
        EXPECT_TRUE(Becomes([dwId] {
            CChildProcess::Start("", "true", nullptr); // the next one sweeps those that could not be watched
            return kill(static_cast<pid_t>(dwId), 0) != 0;
        }));
}

} // namespace
