#include "Common/Encodings.h"

#include <gtest/gtest.h>
#include <string>

using namespace std::string_view_literals;

namespace {

struct STextCase
{
    std::string_view text;
    std::string_view expected;
};

TEST(Base64Decode, GivesTheBytes)
{
    const STextCase CASES[] = {
        {" YW\r\n\t Jj\v\f ", "abc"},
        {"YQ=j", "a"},
        {"YQ==YWJj", "aabc"}, // goes on behind padding
        {"YQBi", "a"},
        {"YWJj\0YWJj"sv, "abc"}, // a NUL ends either text
        {"!!!!", "\xff\xff\xff"},
        {"====", "\xff"} // outside the alphabet: all bits set
    };
    for (const STextCase& item : CASES)
        EXPECT_EQ(Base64Decode(item.text).View(), item.expected) << item.text;
}

TEST(Base64Decode, TellsOfAnEndInsideAGroupAndKeepsTheRest)
{
    for (const char* pszText : {"YWJjY", "YWJjYW", "YWJjYWI", "YWJj Y\nW\n"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(Base64Decode(pszText).View(), "abc");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Premature EOF while decoding Base64-String!\n");
    }
}

TEST(Base64Encode, PadsAndIsUndoneByDecode)
{
    EXPECT_EQ(Base64Encode(Bex::CSimpleString("abc")).View(), "YWJj");
    EXPECT_EQ(Base64Encode(Bex::CSimpleString("ab\0c"sv)).View(), "YWI=");
    EXPECT_EQ(Base64Encode("\0user\0pass", 10).View(), "AHVzZXIAcGFzcw==");
    std::string strText;
    for (int i = 1; i < 600; ++i) {
        strText += static_cast<char>(i % 255 + 1);
        const Bex::CSimpleString strEncoded = Base64Encode(Bex::CSimpleString(std::string_view(strText)));
        ASSERT_EQ(strEncoded.View().find_first_of("\r\n"), std::string_view::npos);
        ASSERT_EQ(Base64Decode(strEncoded).View(), strText);
    }
}

TEST(QuotedPrintableDecode, GivesTheText)
{
    const STextCase CASES[] = {
        {"a=3Db=3d=E4=00b=0A", "a=b=\xe4"
                               "b\n"},    // a NUL does not stay
        {"a=\r\nb=\nc=\rd=\n\n", "abcd"}, // soft breaks
        {"=G5=5G=GG", "\xf5\xff\xff"},    // no hex digits
        {"a=", "a"},
        {"a=4", "a"},
        {"a=\r", "a"} // cut off
    };
    for (const STextCase& item : CASES)
        EXPECT_EQ(QuotedPrintableDecode(item.text).View(), item.expected) << item.text;
}

TEST(XtextEncode, LeavesOnlyPlainPrintableCharacters)
{
    EXPECT_EQ(XtextEncode("a+b=c d").View(), "a+2bb+3dc+20d");
    EXPECT_EQ(XtextEncode("!~\xe4\x7f\r\n").View(), "!~+e4+7f+0d+0a");
    EXPECT_EQ(XtextEncode("a\0b"sv).View(), "a");
}

} // namespace
