#include "Platform/CChildProcess.h"
#include "Platform/CommandLine.h"
#include "support/CTemporaryDirectory.h"

#include <arpa/inet.h>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <tuple>
#include <unistd.h>
#include <vector>

using namespace Platform;
using testing::ContainsRegex;
using testing::HasSubstr;

namespace {

constexpr unsigned LONGEST_RUN = 120'000;

/// A copy of the program that crashes, in a directory of its own, and what it leaves there.
class CrashTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::copy(TOBIX_BUILD_DIR "/helper_crash_me", m_world / "crash_me");
        chmod(m_world.Path().c_str(), 0755); // another user may look, but leave nothing
    }

    uint32_t Shell(const std::string& strCommand) const
    {
        const auto pShell =
            CChildProcess::Start("/bin/sh", "sh -c " + QuoteArgument(strCommand), m_world.Path().c_str());
        uint32_t dwExitCode = 0;
        EXPECT_TRUE(pShell && pShell->Wait(LONGEST_RUN) && pShell->ExitCode(dwExitCode)) << strCommand;
        return dwExitCode;
    }

    /// What the crash says on standard error; the process must end of the signal.
    std::string Crash(const std::string& strArguments, int iSignal, const std::string& strBefore = "") const
    {
        const uint32_t dwExitCode = Shell("ulimit -c 0; " + strBefore + " exec ./crash_me " + strArguments + " 2>err");
        EXPECT_EQ(dwExitCode, 0x80u + static_cast<uint32_t>(iSignal));
        return m_world.Read("err");
    }

    std::vector<std::string> Dumps() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_world.Path())) {
            if (entry.path().extension() == ".dmp")
                names.push_back(entry.path().string());
        }
        return names;
    }

    /// What the debugger makes of the one dump.
    std::string Backtrace() const
    {
        const auto dumps = Dumps();
        if (dumps.size() != 1)
            return std::to_string(dumps.size()) + " dumps";
        Shell("gdb -nx -batch -iex 'set debuginfod enabled off' -ex 'bt 15' -ex 'bt -3' -ex 'info threads' crash_me " +
              dumps.front() + " >bt 2>&1");
        return m_world.Read("bt");
    }

    const CTemporaryDirectory m_world;
};

bool HasDebugger() { return access("/usr/bin/gdb", X_OK) == 0; }

#ifdef TOBIX_SANITIZE_BUILD
constexpr bool IS_SANITIZED = true;
#else
constexpr bool IS_SANITIZED = false;
#endif

struct SWay
{
    const char* pszWay;
    int iSignal;
    std::string strLine; // a pattern
    const char* pszFunction;
};

void PrintTo(const SWay& way, std::ostream* pStream) { *pStream << way.pszWay; }

class CrashWayTest : public CrashTest, public testing::WithParamInterface<std::tuple<SWay, const char*>>
{};

TEST_P(CrashWayTest, LeavesTheLineAndADumpThatNamesTheFunction)
{
    const auto& [way, pszThread] = GetParam();
    if (IS_SANITIZED && std::string(way.pszWay) == "heap")
        GTEST_SKIP() << "the sanitizer's allocator notices in its own way";
    const std::string strError = Crash(way.pszWay + std::string(" ") + pszThread, way.iSignal);
    EXPECT_THAT(strError, ContainsRegex("(^|\n)" + way.strLine + "\n"));
    ASSERT_EQ(Dumps().size(), 1u) << strError;
    EXPECT_THAT(Dumps().front(), ContainsRegex("/crash_me\\.[0-9]{10}\\.dmp$"));
    EXPECT_THAT(strError, HasSubstr("\nCreated Minidump \"" + Dumps().front() +
                                    "\", please send the minidump and this logfile to the support when reporting this "
                                    "problem.\n"));
    if (!HasDebugger())
        GTEST_SKIP() << "no debugger to read the dump";
    const std::string strBacktrace = Backtrace();
    EXPECT_THAT(strBacktrace, ContainsRegex(std::string("#[0-9]+ .*") + way.pszFunction));
    const bool bMain = pszThread == std::string("main");
    EXPECT_THAT(strBacktrace, ContainsRegex(bMain ? "\n#[0-9]+ .* main \\(" : "\n  2 .*Thread "));
}

#define ADDRESS "[0-9A-F]{16}"

const SWay WAYS[] = {
    {"write", SIGSEGV,
     "EXCEPTION_ACCESS_VIOLATION: Thread=0x[0-9A-F]{4,} Flags=0 Addr=" ADDRESS " Write=1 AccessAddr=0{16}",
     "CrashByWrite"},
    {"read", SIGSEGV, "EXCEPTION_ACCESS_VIOLATION: .* Flags=0 Addr=" ADDRESS " Write=0 AccessAddr=0{16}",
     "CrashByRead"},
    {"jump", SIGSEGV, "EXCEPTION_ACCESS_VIOLATION: .* Addr=0{16} Write=8 AccessAddr=0{16}", "CrashByJump"},
    {"recursion", SIGSEGV, "EXCEPTION_STACK_OVERFLOW: .* Flags=0 Addr=" ADDRESS, "CrashByRecursion"},
    {"abort", SIGABRT, "STATUS_STACK_BUFFER_OVERRUN: .* Flags=1 Addr=" ADDRESS, "CrashByAbort"},
    {"heap", SIGABRT, "STATUS_STACK_BUFFER_OVERRUN: .* Flags=1 Addr=" ADDRESS, "CrashByHeap"},
    {"division", SIGFPE, "EXCEPTION_INT_DIVIDE_BY_ZERO: .* Flags=0 Addr=" ADDRESS, "CrashByDivision"},
    {"float", SIGFPE, "EXCEPTION_FLT_DIVIDE_BY_ZERO: .* Flags=0 Addr=" ADDRESS, "CrashByFloatingPoint"},
    {"file", SIGBUS, "EXCEPTION_IN_PAGE_ERROR: .* Write=0 AccessAddr=[0-9A-F]{13}000 NTSTATUS=3221225489",
     "CrashByFile"},
    {"trap", SIGTRAP, "EXCEPTION_BREAKPOINT: .* Flags=0 Addr=" ADDRESS, "CrashByTrap"},
    {"signal", SIGSYS, "UNKNOWN EXCEPTION: Code=0xE000001F Thread=.* Flags=0 Addr=" ADDRESS, "CrashBySignal"},
    {"throw", SIGABRT, "UNHANDLED_CPP_EXCEPTION: .* Flags=1 Addr=" ADDRESS, "CrashByThrow"},
    {"terminate", SIGABRT, "STATUS_STACK_BUFFER_OVERRUN: .* Flags=1 Addr=" ADDRESS, "CrashByTerminate"},
#if defined(__x86_64__)
    {"instruction", SIGILL, "EXCEPTION_ILLEGAL_INSTRUCTION: .* Flags=0 Addr=" ADDRESS, "CrashByInstruction"},
    {"privilege", SIGSEGV, "EXCEPTION_PRIV_INSTRUCTION: .* Flags=0 Addr=" ADDRESS, "CrashByPrivilege"},
    {"breakpoint", SIGTRAP, "EXCEPTION_BREAKPOINT: .* Flags=0 Addr=" ADDRESS, "CrashByBreakpoint"},
    {"wild", SIGSEGV, "EXCEPTION_ACCESS_VIOLATION: .* Write=0 AccessAddr=F{16}", "CrashByWildAddress"},
#endif
};

INSTANTIATE_TEST_SUITE_P(Every, CrashWayTest,
                         testing::Combine(testing::ValuesIn(WAYS), testing::Values("main", "worker")),
                         [](const auto& test) {
                             return std::string(std::get<0>(test.param).pszWay) + "_" + std::get<1>(test.param);
                         });

TEST_F(CrashTest, LinesGoToTheConsoleLogToo)
{
    const std::string strStamp = "[0-9.]{10} [0-9:]{8} \\[[0-9A-F]{4,}\\] error: ";
    const std::string strError = Crash("write main console", SIGSEGV);
    EXPECT_THAT(strError, ContainsRegex("\n" + strStamp + "EXCEPTION_ACCESS_VIOLATION: .*\n"));
    EXPECT_THAT(strError, ContainsRegex("\n" + strStamp + "Created Minidump .*\n$"));
}

TEST_F(CrashTest, LinesGoToTheSyslogReceiverToo)
{
    const int iSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    socklen_t nLength = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(iSocket, reinterpret_cast<sockaddr*>(&address), nLength), 0);
    getsockname(iSocket, reinterpret_cast<sockaddr*>(&address), &nLength);
    const timeval limit{10, 0};
    setsockopt(iSocket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));

    Crash("write worker syslog=" + std::to_string(ntohs(address.sin_port)), SIGSEGV);
    for (const char* pszText : {"EXCEPTION_ACCESS_VIOLATION: Thread=0x", "Created Minidump \".*problem\\.$"}) {
        char datagram[600] = "";
        EXPECT_GT(recv(iSocket, datagram, sizeof(datagram) - 1, 0), 0);
        EXPECT_THAT(datagram, ContainsRegex(std::string("^<27> \\[[0-9A-F]{4,}\\] Tobix: ") + pszText));
    }
    close(iSocket);
}

TEST_F(CrashTest, TwoCrashesAtOnceMakeOneReport)
{
    const std::string strError = Crash("twice main", SIGSEGV);
    EXPECT_THAT(strError, ContainsRegex("^EXCEPTION_ACCESS_VIOLATION: [^\n]*\nCreated Minidump [^\n]*\n$"));
    EXPECT_EQ(Dumps().size(), 1u);
}

TEST_F(CrashTest, ExhaustedDescriptorsDoNotMatter)
{
    if (IS_SANITIZED)
        GTEST_SKIP() << "the sanitizer needs a descriptor of its own when the process dies";
    EXPECT_THAT(Crash("nodescriptor main", SIGSEGV), HasSubstr("\nCreated Minidump "));
}

TEST_F(CrashTest, ClosedDirectoryIsTold)
{
    if (geteuid() != 0)
        chmod(m_world.Path().c_str(), 0555);
    std::ofstream(m_world / "err").close();
    EXPECT_THAT(Crash("write main nobody", SIGSEGV),
                ContainsRegex("\nCreating Minidump \".*/crash_me\\.[0-9]{10}\\.dmp\" failed \\(0x00000005\\), please "
                              "send this logfile to the support when reporting this problem\\.\n$"));
    EXPECT_TRUE(Dumps().empty());
    chmod(m_world.Path().c_str(), 0755);
}

TEST_F(CrashTest, ProcessThatGaveUpRootIsDumpedAsWell)
{
    chmod(m_world.Path().c_str(), 0777);
    EXPECT_THAT(Crash("write main nobody", SIGSEGV), HasSubstr("\nCreated Minidump "));
}

TEST_F(CrashTest, CrashIsToldWhenNoHelperCanBeStarted)
{
    EXPECT_THAT(Crash("noprocess main nobody console", SIGSEGV),
                ContainsRegex("^EXCEPTION_ACCESS_VIOLATION: .*\nCreating Minidump .* failed .*"
                              "error: EXCEPTION_ACCESS_VIOLATION: .*error: Creating Minidump "));
}

TEST_F(CrashTest, HelperThatHangsIsGivenUp)
{
    EXPECT_THAT(Crash("write worker", SIGSEGV, "CRASH_ME_HANG=1"),
                ContainsRegex("^EXCEPTION_ACCESS_VIOLATION: .*\nCreating Minidump .* failed \\(0x00000102\\)"));
    EXPECT_TRUE(Dumps().empty());
}

} // namespace
