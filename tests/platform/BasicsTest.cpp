#include "Platform/CDirectoryWatch.h"
#include "Platform/CEventHandle.h"
#include "Platform/Clock.h"
#include "Platform/ConsoleScreen.h"
#include "Platform/Errors.h"
#include "Platform/HostLookup.h"
#include "Platform/linux/process/GroupMemory.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <unistd.h>

using namespace Platform;

namespace {

TEST(ErrorsTest, BusyIsToldFromEverythingThatWillNotPass)
{
    const std::set<int> inUse{EAGAIN, EBUSY, ETXTBSY, EDEADLK, ESTALE, ENOTCONN, ECONNABORTED},
        isShort{EMFILE, ENFILE, ENOMEM, ENOLCK};
    for (int iErrno = 1; iErrno < 140; ++iErrno) {
        const SError error = ErrorFromErrno(iErrno);
        EXPECT_EQ(IsShortage(error), isShort.contains(iErrno)) << iErrno;
        EXPECT_EQ(IsBusy(error), inUse.contains(iErrno) || isShort.contains(iErrno)) << iErrno;
        EXPECT_EQ(error.dwSysError == SYS_SHARING_VIOLATION, inUse.contains(iErrno)) << iErrno;
        const bool bDenied = iErrno == EACCES || iErrno == EPERM; // has the library's number in common with busy
        EXPECT_EQ(error.iLibError == LIB_ACCESS, bDenied || (inUse.contains(iErrno) && iErrno != EDEADLK)) << iErrno;
        EXPECT_NE(error.dwSysError, SYS_NONE) << iErrno;
    }
    EXPECT_EQ(ErrorFromErrno(EDEADLK).iLibError, LIB_DEADLOCK);
    EXPECT_TRUE(IsShortage(CreationErrorFromErrno(EAGAIN)));
    EXPECT_FALSE(IsBusy({}));
}

TEST(EventTest, StaysSetForEveryWaiterUntilReset)
{
    const CDirectoryWatch nothing;
    CEventHandle other, event;
    EXPECT_EQ(WaitAny({&event}, 0), EWaitResult::TimedOut);
    const uint64_t ui64Started = TickCount();
    EXPECT_EQ(WaitAny({&nothing, nullptr, &event}, 30), EWaitResult::TimedOut);
    EXPECT_GE(TickCount() - ui64Started, 30u);
    std::thread setter([&] {
        SleepMillis(20);
        EXPECT_TRUE(event.Set() && event.Set());
    });
    EXPECT_EQ(WaitAny({&other, &nothing, &other, &other, &other, &other, &other, &other, &other, &event}, INFINITE),
              EWaitResult::Signalled);
    setter.join();
    EXPECT_EQ(WaitAny({&event}, 0), EWaitResult::Signalled);
    EXPECT_TRUE(event.Reset() && event.Reset());
    EXPECT_EQ(WaitAny({&event}, 0), EWaitResult::TimedOut);
}

TEST(ConsoleTest, WritesInColourAndRestores)
{
    testing::internal::CaptureStdout();
    EXPECT_FALSE(HasConsole(false));
    WriteConsole(false, "one\n", EColour::Yellow, true);
    WriteConsole(false, "two\n", EColour::Yellow, false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\x1b[93mone\n\x1b[39mtwo\n");
}

TEST(ConsoleTest, ReaderThatIsStuckOrGoneHoldsNobodyUpForLong)
{
    int pipes[2];
    ASSERT_EQ(pipe2(pipes, O_NONBLOCK), 0);
    const int iStdout = dup(STDOUT_FILENO);
    dup2(pipes[1], STDOUT_FILENO);
    const auto before = signal(SIGPIPE, SIG_IGN);
    WriteConsole(false, std::string(200'000, 'x'), EColour::Grey, false);
    close(pipes[0]);
    WriteConsole(false, "x", EColour::Grey, false);
    signal(SIGPIPE, before);
    dup2(iStdout, STDOUT_FILENO);
    for (const int iDescriptor : {iStdout, pipes[1]})
        close(iDescriptor);
}

TEST(GroupMemoryTest, IsThatOfTheNarrowestGroupAndItsSwapSpace)
{
    const CTemporaryDirectory groups;
    const std::string strMembership = groups.Write("self", "1:name=x:/y\n0::/a/b\n");
    const auto Most = [&] { return MostGroupMemory(50, strMembership, groups.Path()); };
    EXPECT_EQ(Most(), UINT64_MAX);
    groups.Write("a/memory.max", "1000\n");
    groups.Write("a/b/memory.max", "max\n");
    EXPECT_EQ(Most(), 1050u);
    groups.Write("a/b/memory.max", "900\n");
    groups.Write("a/b/memory.swap.max", "20\n");
    EXPECT_EQ(Most(), 920u);
}

TEST(HostTest, IsLookedUpWithItsCanonicalName)
{
    std::vector<SSocketAddress> addresses;
    std::string strCanonical;
    ASSERT_TRUE(LookupHost(FAMILY_IPV4, "localhost", addresses, &strCanonical));
    EXPECT_EQ(AddressText(addresses.at(0)) + ' ' + strCanonical, "127.0.0.1 localhost");
    CEventHandle stop;
    ASSERT_TRUE(LookupName(addresses.at(0), strCanonical, CWaitLimit(&stop)));
    EXPECT_EQ(strCanonical, "localhost");
    stop.Set();
    EXPECT_FALSE(LookupName(addresses.at(0), strCanonical, CWaitLimit(&stop)));
}

} // namespace
