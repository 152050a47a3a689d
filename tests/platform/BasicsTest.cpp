#include "Platform/CDatagramSocket.h"
#include "Platform/CEventHandle.h"
#include "Platform/CNativeThread.h"
#include "Platform/Clock.h"
#include "Platform/ConsoleScreen.h"
#include "Platform/Errors.h"
#include "Platform/FaultInjection.h"
#include "Platform/HostLookup.h"
#include "Platform/SocketErrors.h"

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace Platform;

namespace {

TEST(ErrorsTest, BusyIsToldFromEverythingThatWillNotPass)
{
    const std::set<int> inUse{EAGAIN, EBUSY, ETXTBSY, EDEADLK}, isShort{EMFILE, ENFILE, ENOMEM, ENOLCK};
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

TEST(ErrorsTest, LastErrorBelongsToTheThread)
{
    SetLastError({LIB_NO_ENTRY, SYS_FILE_NOT_FOUND});
    std::thread([] { EXPECT_EQ(LastError().dwSysError, SYS_NONE); }).join();
    EXPECT_EQ(LastError().dwSysError, SYS_FILE_NOT_FOUND);
}

class CNothing : public IWaitable
{
public:
    int WaitDescriptor() const override { return -1; }
};

TEST(EventTest, StaysSetForEveryWaiterUntilReset)
{
    CEventHandle event;
    ASSERT_TRUE(event.IsValid());
    EXPECT_EQ(WaitAny({&event}, 0), EWaitResult::TimedOut);
    EXPECT_TRUE(event.Set());
    EXPECT_TRUE(event.Set());
    EXPECT_EQ(WaitAny({&event}, 0), EWaitResult::Signalled);
    EXPECT_EQ(WaitAny({&event}, INFINITE), EWaitResult::Signalled);
    EXPECT_TRUE(event.Reset());
    EXPECT_TRUE(event.Reset());
    EXPECT_EQ(WaitAny({&event}, 0), EWaitResult::TimedOut);
}

TEST(EventTest, WaitEndsWithAnyOfTheObjectsOrItsTime)
{
    const CNothing nothing;
    CEventHandle other, event;
    const uint64_t ui64Started = TickCount();
    EXPECT_EQ(WaitAny({&nothing, nullptr, &event}, 30), EWaitResult::TimedOut);
    EXPECT_GE(TickCount() - ui64Started, 30u);
    std::thread setter([&] {
        SleepMillis(20);
        event.Set();
    });
    EXPECT_EQ(WaitAny({&other, &nothing, &other, &other, &other, &other, &other, &other, &other, &event}, INFINITE),
              EWaitResult::Signalled);
    setter.join();
}

TEST(NativeThreadTest, RunsTheProcedureUnderItsId)
{
    std::atomic<unsigned> dwSeen = 0;
    const auto pThread = CNativeThread::Create(
        [](void* pSeen) { *static_cast<std::atomic<unsigned>*>(pSeen) = CurrentThreadId(); }, &dwSeen);
    ASSERT_NE(pThread, nullptr);
    pThread->Join();
    EXPECT_EQ(pThread->Id(), dwSeen);
    EXPECT_NE(pThread->Id(), CurrentThreadId());
    EXPECT_EQ(CurrentThreadId(), static_cast<unsigned>(gettid()));

    const CInjectedFault fault(EFault::CreateThread, 1, EAGAIN);
    EXPECT_EQ(CNativeThread::Create([](void*) {}, nullptr), nullptr);
    EXPECT_EQ(LastError().dwSysError, SYS_NO_RESOURCES);
}

TEST(ClockTest, LocalTimeFollowsTheZone)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    const SLocalTime winter = ToLocalTime(1'419'440'585);
    EXPECT_EQ(winter.iYear * 10000 + winter.iMonth * 100 + winter.iDay, 20141224);
    EXPECT_EQ(winter.iHour * 10000 + winter.iMinute * 100 + winter.iSecond, 180305);
    EXPECT_EQ(winter.iDayOfWeek, 3);
    EXPECT_EQ(winter.iUtcOffset, 3600);
    EXPECT_EQ(ToLocalTime(1'404'000'000).iUtcOffset, 7200);
    unsetenv("TZ");
    tzset();
}

class ConsoleTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(pipe(m_pipe), 0);
        m_iStdout = dup(STDOUT_FILENO);
        dup2(m_pipe[1], STDOUT_FILENO);
    }
    void TearDown() override
    {
        dup2(m_iStdout, STDOUT_FILENO);
        for (const int iDescriptor : {m_iStdout, m_pipe[0], m_pipe[1]})
            close(iDescriptor);
    }
    int m_pipe[2]{};
    int m_iStdout = -1;
};

TEST_F(ConsoleTest, WritesInColourAndRestores)
{
    EXPECT_FALSE(HasConsole(false));
    WriteConsole(false, "one\n", EColour::Yellow, true);
    WriteConsole(false, "two\n", EColour::Yellow, false);
    char buffer[64]{};
    EXPECT_GT(read(m_pipe[0], buffer, sizeof(buffer) - 1), 0);
    EXPECT_STREQ(buffer, "\x1b[93mone\n\x1b[39mtwo\n");
}

TEST_F(ConsoleTest, ReaderThatIsStuckOrGoneHoldsNobodyUpForLong)
{
    fcntl(m_pipe[1], F_SETFL, O_NONBLOCK);
    const std::string strMuch(200'000, 'x');
    WriteConsole(false, strMuch, EColour::Grey, false);
    const auto before = signal(SIGPIPE, SIG_IGN);
    close(std::exchange(m_pipe[0], -1));
    WriteConsole(false, strMuch, EColour::Grey, false);
    signal(SIGPIPE, before);
}

TEST(HostTest, DatagramArrivesByAddressAndByName)
{
    const int iSocket = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t nLength = sizeof(local);
    ASSERT_EQ(bind(iSocket, reinterpret_cast<sockaddr*>(&local), nLength), 0);
    ASSERT_EQ(getsockname(iSocket, reinterpret_cast<sockaddr*>(&local), &nLength), 0);
    for (const char* pszHost : {"127.0.0.1", "localhost"}) {
        EXPECT_TRUE(SendDatagram(pszHost, ntohs(local.sin_port), "<22> text", 9)) << pszHost;
        char buffer[32];
        EXPECT_EQ(recv(iSocket, buffer, sizeof(buffer), MSG_DONTWAIT), 9) << pszHost;
    }
    close(iSocket);
    EXPECT_FALSE(SendDatagram("", 514, "x", 1));

    std::vector<SSocketAddress> addresses;
    std::string strCanonical;
    ASSERT_TRUE(LookupHost(FAMILY_IPV4, "localhost", addresses, &strCanonical));
    EXPECT_EQ(AddressText(addresses.at(0)) + ' ' + strCanonical, "127.0.0.1 localhost");
    EXPECT_FALSE(LookupHost(FAMILY_IPV4, "", addresses));
    EXPECT_EQ(LastSocketError(), 11001u);
}

} // namespace
