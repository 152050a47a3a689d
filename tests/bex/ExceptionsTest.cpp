#include "Bex/CFileException.h"
#include "Bex/CFormatException.h"
#include "Bex/CSecurityException.h"
#include "Bex/CSocketException.h"
#include "Bex/CSystemException.h"
#include "support/CLogRecorder.h"

#include <gmock/gmock.h>
#include <string>

using namespace Bex;
using testing::EndsWith;

namespace {

std::string TextOf(const CException& exception)
{
    char text[1000];
    exception.GetMessage(text, sizeof(text));
    return text;
}

TEST(ExceptionsTest, EachKindRendersItsFields)
{
    EXPECT_EQ(TextOf(CFormatException("Bex/A", 7)), "CFormatException in file \"Bex/A\" at line 7");
    EXPECT_EQ(TextOf(CSystemException("Bex/A", 7, 0xABC)),
              "CSystemException in file \"Bex/A\" at line 7; system error: 0x00000ABC");
    EXPECT_EQ(TextOf(CFileException("Bex/A", 7, 28, -1)),
              "CFileException in file \"Bex/A\" at line 7; library error: 28, system error: 4294967295, message: no "
              "space left on device");
    EXPECT_EQ(TextOf(CSocketException("Bex/A", 7, 10061)),
              "CSocketException in file \"Bex/A\" at line 7; system error: 10061, message: the attempt to connect was "
              "rejected");
    EXPECT_EQ(TextOf(CSecurityException("Bex/A", 7, 0x80090328)),
              "CSecurityException in file \"Bex/A\" at line 7; security error: 0x80090328, message: The received "
              "certificate has expired.");
}

TEST(ExceptionsTest, TheSystemErrorDecidesAFileErrorsTextAndUnknownCodesSaySo)
{
    EXPECT_THAT(TextOf(CFileException("", 0, 13, 5)), EndsWith(", message: access denied"));
    EXPECT_THAT(TextOf(CFileException("", 0, 2, -1)), EndsWith(", message: file or path not found"));
    EXPECT_THAT(TextOf(CFileException("", 0, 2, 87)), EndsWith(", message: unknown error"));
    EXPECT_THAT(TextOf(CSocketException("", 0, 10062)), EndsWith(", message: unknown error"));
}

TEST(ExceptionsTest, ATextIsCutToItsBufferWhichIsClearedFirst)
{
    char text[] = "zzzzzzzzzzz";
    CFormatException("Bex/A", 7).GetMessage(text, 10);
    EXPECT_STREQ(text, "CFormatEx");
    EXPECT_EQ(text[10], 'z');
    std::string strWide(100, 'z');
    CFormatException("", 7).GetMessage(strWide.data(), strWide.size());
    EXPECT_EQ(strWide.find('z'), std::string::npos);
}

TEST(ExceptionsTest, ACaughtFileErrorIsLoggedWithBothPlaces)
{
    CLogRecorder recorder;
    const CFileException exception("Bex/CFile", 150, 13, 32);
    LogCaught(exception, "Tobix/LocalAgent", 9, "could not remove file \"a%s.eml\"");
    EXPECT_EQ(recorder.Take(),
              "3 CFileException(SysError=32, LibError=13) at Bex/CFile:150 caught at Tobix/LocalAgent:9: "
              "could not remove file \"a%s.eml\"\n");
}

} // namespace
