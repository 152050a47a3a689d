#include "support/CTemporaryDirectory.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

/// A copy of the program that crashes, in a directory of its own, and what it leaves there.
class CrashTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::copy(TOBIX_BUILD_DIR "/helper_crash_me", m_world / "crash_me");
        chmod(m_world.Path().c_str(), 0755); // another user may look, but leave nothing
    }

    int Shell(const std::string& strCommand) const
    {
        return std::system(("cd " + m_world.Path().string() + "; ulimit -c 0; " + strCommand).c_str());
    }

    /// What the crash says on standard error; the process must end of the signal.
    std::string Crash(const std::string& strArguments, int iSignal, const std::string& strBefore = "") const
    {
        const int iStatus = Shell(strBefore + " exec ./crash_me " + strArguments + " 2>err");
        EXPECT_TRUE(WIFSIGNALED(iStatus) && WTERMSIG(iStatus) == iSignal) << iStatus;
        return m_world.Read("err");
    }

    const CTemporaryDirectory m_world;
};

/// The way, the signal, the exception and a pattern of what else is told of it.
using CWay = std::tuple<std::string, int, std::string, const char*>;
const CWay WAYS[] = {
    {"write", SIGSEGV, "EXCEPTION_ACCESS_VIOLATION:", " Write=1 AccessAddr=0{16}"},
    {"read", SIGSEGV, "EXCEPTION_ACCESS_VIOLATION:", " Write=0 AccessAddr=0{16}"},
    {"jump", SIGSEGV, "EXCEPTION_ACCESS_VIOLATION:", " Write=8 AccessAddr=0{16}"},
    {"recursion", SIGSEGV, "EXCEPTION_STACK_OVERFLOW:", ""},
    {"abort", SIGABRT, "STATUS_STACK_BUFFER_OVERRUN:", ""},
    {"throw", SIGABRT, "UNHANDLED_CPP_EXCEPTION:", ""},
    {"terminate", SIGABRT, "STATUS_STACK_BUFFER_OVERRUN:", ""},
    {"division", SIGFPE, "EXCEPTION_INT_DIVIDE_BY_ZERO:", ""},
    {"float", SIGFPE, "EXCEPTION_FLT_DIVIDE_BY_ZERO:", ""},
    {"file", SIGBUS, "EXCEPTION_IN_PAGE_ERROR:", " Write=0 AccessAddr=[0-9A-F]{13}000 NTSTATUS=3221225489"},
    {"trap", SIGTRAP, "EXCEPTION_BREAKPOINT:", ""},
    {"signal", SIGSYS, "UNKNOWN EXCEPTION: Code=0xE000001F", ""},
#if defined(__x86_64__)
    {"instruction", SIGILL, "EXCEPTION_ILLEGAL_INSTRUCTION:", ""},
    {"privilege", SIGSEGV, "EXCEPTION_PRIV_INSTRUCTION:", ""},
    {"wild", SIGSEGV, "EXCEPTION_ACCESS_VIOLATION:", " Write=0 AccessAddr=F{16}"},
#endif
};

class CrashWayTest : public CrashTest, public testing::WithParamInterface<std::tuple<CWay, std::string>>
{};
INSTANTIATE_TEST_SUITE_P(Every, CrashWayTest,
                         testing::Combine(testing::ValuesIn(WAYS), testing::Values("main", "worker")));

TEST_P(CrashWayTest, LeavesTheLineAndADumpThatNamesTheFunction)
{
    const auto& [way, strThread] = GetParam();
    const auto& [strWay, iSignal, strException, pszParameters] = way;
    SCOPED_TRACE(strWay);
    const std::string strError = Crash(strWay + " " + strThread, iSignal);
    EXPECT_THAT(strError, ContainsRegex("(^|\n)" + strException +
                                        " Thread=0x[0-9A-F]{4,} Flags=" + (iSignal == SIGABRT ? "1" : "0") +
                                        " Addr=[0-9A-F]{16}" + pszParameters + "\n"));
    const auto names = m_world.Names();
    ASSERT_THAT(names, ElementsAre("crash_me", MatchesRegex("crash_me\\.[0-9]{10}\\.dmp"), "err")) << strError;
    const std::string strDump = m_world / *std::next(names.begin());
    EXPECT_THAT(strError, HasSubstr("\nCreated Minidump \"" + strDump +
                                    "\", please send the minidump and this logfile to the support when reporting this "
                                    "problem.\n"));
    if (access("/usr/bin/gdb", X_OK) != 0)
        GTEST_SKIP() << "no debugger to read the dump";
    Shell("gdb -nx -batch -iex 'set debuginfod enabled off' -ex 'bt 15' -ex 'bt -3' -ex 'info threads' crash_me " +
          strDump + " >bt 2>&1");
    EXPECT_THAT(m_world.Read("bt"), ContainsRegex(std::string("#[0-9]+ .*CrashHere.*\n") +
                                                  (strThread == "main" ? "#[0-9]+ .* main \\(" : "  2 .*Thread ")));
}

TEST_F(CrashTest, LinesGoToTheSyslogReceiverToo)
{
    const int iSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    socklen_t nLength = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const pAddress = reinterpret_cast<sockaddr*>(&address);
    ASSERT_TRUE(bind(iSocket, pAddress, nLength) == 0 && getsockname(iSocket, pAddress, &nLength) == 0);
    Crash("write worker syslog=" + std::to_string(ntohs(address.sin_port)), SIGSEGV);
    for (const char* pszText : {"EXCEPTION_ACCESS_VIOLATION: Thread=0x", "Created Minidump \".*problem\\.$"}) {
        char datagram[600] = "";
        EXPECT_GT(recv(iSocket, datagram, sizeof(datagram) - 1, MSG_DONTWAIT), 0);
        EXPECT_THAT(datagram, ContainsRegex(std::string("^<27> \\[[0-9A-F]{4,}\\] Tobix: ") + pszText));
    }
    close(iSocket);
}

TEST_F(CrashTest, TwoCrashesAtOnceMakeOneReport)
{
    const std::string strError = Crash("twice main", SIGSEGV);
    EXPECT_THAT(strError, ContainsRegex("^EXCEPTION_ACCESS_VIOLATION: [^\n]*\nCreated Minidump [^\n]*\n$"));
    EXPECT_EQ(m_world.Names().size(), 3u);
}

#ifndef TOBIX_SANITIZE_BUILD // the sanitizer needs a descriptor of its own when the process dies
TEST_F(CrashTest, ExhaustedDescriptorsDoNotMatter)
{
    EXPECT_THAT(Crash("nodescriptor main", SIGSEGV), HasSubstr("\nCreated Minidump "));
}
#endif

TEST_F(CrashTest, ClosedDirectoryIsTold)
{
    if (geteuid() != 0)
        chmod(m_world.Path().c_str(), 0555);
    std::ofstream(m_world / "err").close();
    EXPECT_THAT(Crash("write main nobody", SIGSEGV),
                ContainsRegex("\nCreating Minidump \".*/crash_me\\.[0-9]{10}\\.dmp\" failed \\(0x00000005\\), please "
                              "send this logfile to the support when reporting this problem\\.\n$"));
    EXPECT_THAT(m_world.Names(), ElementsAre("crash_me", "err"));
    chmod(m_world.Path().c_str(), 0755);
}

TEST_F(CrashTest, ProcessThatGaveUpRootIsDumpedWhereItMayWrite)
{
    EXPECT_THAT(Crash("write main nobody", SIGSEGV, "mkdir -m 777 dumps; export TOBIX_DUMP_DIR=$PWD/dumps;"),
                HasSubstr("\nCreated Minidump \"" + (m_world / "dumps/crash_me.")));
}

TEST_F(CrashTest, CrashIsToldWhenNoHelperCanBeStarted)
{
    const std::string strStamp = "\n[0-9.]{10} [0-9:]{8} \\[[0-9A-F]{4,}\\] error: ";
    EXPECT_THAT(Crash("noprocess main nobody console", SIGSEGV),
                ContainsRegex("^EXCEPTION_ACCESS_VIOLATION: .*\nCreating Minidump .* failed .*" + strStamp +
                              "EXCEPTION_ACCESS_VIOLATION: .*" + strStamp + "Creating Minidump "));
}

TEST_F(CrashTest, HelperThatHangsIsGivenUp)
{
    EXPECT_THAT(Crash("write worker", SIGSEGV, "CRASH_ME_HANG=1"),
                ContainsRegex("^EXCEPTION_ACCESS_VIOLATION: .*\nCreating Minidump .* failed \\(0x00000102\\)"));
    EXPECT_THAT(m_world.Names(), ElementsAre("crash_me", "err"));
}

} // namespace
