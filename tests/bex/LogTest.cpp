#include "Bex/CConsoleLog.h"
#include "Bex/CJournalLog.h"
#include "Bex/CLogContext.h"
#include "Bex/CSysLog.h"
#include "Platform/CNativeThread.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"
#include "support/CLogRecorder.h"
#include "support/CTalkingChild.h"
#include "support/CTemporaryDirectory.h"

#include <atomic>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <stdexcept>
#include <thread>

using namespace Bex;

namespace {

TEST(LogTest, LongLinesAreCutAndArgumentsCannotForgeLines)
{
    LogError(MainLog(), "nowhere to go");
    CLogRecorder recorded;
    LogError(MainLog(), "%s", std::string(1023, 'a').c_str());
    LogWarning(MainLog(), "%s\n", std::string(1023, 'b').c_str());
    EXPECT_EQ(recorded.Take(), "3 " + std::string(1023, 'a') + "\n4 " + std::string(1023, 'b') + "\n");
    LogError(MainLog(), "from <%s> later!\n", "x\r\n<3>forged\x1b[2J\x7f");
    EXPECT_EQ(recorded.Take(), "3 from <x?\?<3>forged?[2J?> later!\n\n");
    LogInfo(MainLog(), "%s", "line\n"); // the line end is the argument's
    EXPECT_EQ(recorded.Take(), "6 line?\n");
}

TEST(LogTest, AFailingDestinationHurtsNobody)
{
    CLogRecorder recorder;
    recorder.SetListener([](const std::string&) {
        Platform::SetLastError({Platform::LIB_IO, Platform::SYS_IO});
        throw std::runtime_error("full");
    });
    Platform::SetLastError({Platform::LIB_NO_ENTRY, Platform::SYS_FILE_NOT_FOUND});
    EXPECT_NO_THROW(LogError(MainLog(), "x"));
    EXPECT_EQ(Platform::LastError().dwSysError, Platform::SYS_FILE_NOT_FOUND);
}

TEST(LogTest, ADestinationIsReplacedWhileOthersWrite)
{
    std::atomic<bool> bStop = false;
    std::thread writer([&] {
        while (!bStop)
            LogInfo(MainLog(), "line");
    });
    for (int n = 0; n < 200; ++n) {
        CLogRecorder recorded;
        LogInfo(MainLog(), "own");
        EXPECT_NE(recorded.Take().find("own"), std::string::npos);
    }
    bStop = true;
    writer.join();
}

TEST(ConsoleLogTest, ErrorsGoToStandardErrorAndTheRestToStandardOutput)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    CConsoleLog log;
    log.Write(3, "bad", 0);
    log.Write(4, "odd", 0);
    log.Write(6, std::string(1023, 'x').c_str(), 0);
    const std::string strStamp = "[0-9]{2}\\.[0-9]{2}\\.[0-9]{4} ([0-9]{2}:){2}[0-9]{2} \\[[0-9A-F]+\\] ";
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::MatchesRegex(strStamp + "error: bad\n"));
    EXPECT_THAT(
        testing::internal::GetCapturedStdout(),
        testing::MatchesRegex(strStamp + "warning: odd\n" + strStamp + "info: " + std::string(1023, 'x') + "\n"));
}

TEST(SysLogTest, SendsOneBoundedDatagramPerLine)
{
    const int iSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t nLength = sizeof address;
    auto* const pAddress = reinterpret_cast<sockaddr*>(&address);
    ASSERT_TRUE(bind(iSocket, pAddress, nLength) == 0 && getsockname(iSocket, pAddress, &nLength) == 0);
    const auto received = [&](const char* pszFacility, const char* pszHost, int iLevel, const std::string& strText) {
        CSysLog(pszFacility, pszHost, ntohs(address.sin_port)).Write(iLevel, strText.c_str(), 0);
        char buffer[2000];
        const ssize_t iLength = Readable(iSocket) ? recv(iSocket, buffer, sizeof(buffer), 0) : 0;
        return std::string(buffer, static_cast<size_t>(iLength));
    };
    const std::string strPrefix = CSimpleString::Formatted(" [%04X] Tobix: ", Platform::CurrentThreadId()).Text();
    EXPECT_EQ(received("local0", "127.0.0.1", 4, "text"), "<132>" + strPrefix + "text");
    EXPECT_EQ(received("MAIL", "localhost", 5, "text"), "<21>" + strPrefix + "text");
    EXPECT_EQ(received("unheard of", "", 5, "text"), "<21>" + strPrefix + "text");
    const std::string strLong = "<27>" + strPrefix + std::string(1023, 'x');
    EXPECT_EQ(received("daemon", "127.0.0.1", 3, std::string(1023, 'x')), strLong.substr(0, 512));
    EXPECT_EQ(CSysLog(CSysLog::FACILITY_LOCAL2).Facility(), 144);
    close(iSocket);
}

TEST(JournalLogTest, CopiesEachLineWithItsMailAndHardlyWaits)
{
    const CTemporaryDirectory directory;
    const CNotifySocket journal(directory / "journal");
    setenv("TOBIX_JOURNAL_SOCKET", (directory / "journal").c_str(), 1);
    const CLogRecorder other;
    CJournalLog log(MainLog().Get(), std::make_shared<Platform::CJournal>(), 2 * 8);
    unsetenv("TOBIX_JOURNAL_SOCKET");
    const auto Entry = [](int iLevel, const std::string& strText, const std::string& strRest = {}) {
        return "MESSAGE=" + strText + "\nPRIORITY=" + std::to_string(iLevel) +
               "\nSYSLOG_FACILITY=2\nSYSLOG_IDENTIFIER=tobix\nTID=" + std::to_string(Platform::CurrentThreadId()) +
               '\n' + strRest;
    };
    const CLogContext queueFile("a.eml"), envelope({}, "id@x", "bob@x"), recipient({}, {}, {}, "ann@x");
    {
        const CLogContext sent("o\n1.eml", {}, "SRS0@y", "ann@x");
        log.Write(6, "stored\n", 0);
        const CLogContext another("b.eml");
        log.Write(4, "other", 0);
    }
    log.Write(5, "end", 0);
    const std::string strOuter = "TOBIX_TO=ann@x\nTOBIX_MAIL=<id@x>\nTOBIX_FROM=bob@x\nTOBIX_MAIL=a.eml\n";
    const std::string strSent("TOBIX_MAIL\n\7\0\0\0\0\0\0\0o\n1.eml\nTOBIX_FROM=SRS0@y\n", 45);
    EXPECT_EQ(journal.Next(), Entry(6, "stored", strSent + strOuter));
    EXPECT_EQ(journal.Next(), Entry(4, "other", "TOBIX_MAIL=b.eml\n"));
    EXPECT_EQ(journal.Next(), Entry(5, "end", strOuter));

    const CLogContext noMail({});
    const uint64_t nStuckTicks = Platform::TickCount();
    unsigned nTaken = 0;
    for (int n = 0; n < 2000; ++n) // more than any queue of datagrams holds
        log.Write(6, "line", 0);
    EXPECT_LT(Platform::TickCount() - nStuckTicks, 2000U);
    for (; !journal.IsSilent(); ++nTaken)
        journal.Next();
    log.Write(6, "back", 0);
    EXPECT_EQ(journal.Next(), Entry(6, "back"));
    EXPECT_EQ(journal.Next(), Entry(4, std::to_string(2000 - nTaken) + " lines did not reach the journal"));
    EXPECT_TRUE(other.Contains("6 back"));
}

} // namespace
