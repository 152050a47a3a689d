#include "Common/Encodings.h"

#include <gtest/gtest.h>
#include <string>

using namespace std::string_view_literals;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

TEST(Base64, DecodesToTheBytes)
{
    const std::pair<std::string_view, const char*> CASES[] = {{" YW\r\n\t Jj\v\f ", "abc"},
                                                              {"YQ=j", "a"},
                                                              {"YQ==YWJj", "aabc"}, // goes on behind padding
                                                              {"YQBi", "a"},
                                                              {"YWJj\0YWJj"sv, "abc"}, // a NUL ends either text
                                                              {"!!!!", "\xff\xff\xff"},
                                                              {"====", "\xff"}}; // outside the alphabet: all bits set
    for (const auto& [text, pszExpected] : CASES)
        EXPECT_EQ(Base64Decode(text).View(), pszExpected) << text;
    for (const char* pszText : {"YWJjY", "YWJjYW", "YWJjYWI", "YWJj Y\nW\n"}) { // ends inside a group
        CaptureStderr();
        EXPECT_EQ(Base64Decode(pszText).View(), "abc");
        EXPECT_EQ(GetCapturedStderr(), "Premature EOF while decoding Base64-String!\n");
    }
}

TEST(Base64, PadsAndIsUndone)
{
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

TEST(QuotedPrintable, DecodesToTheText)
{
    const std::pair<const char*, const char*> CASES[] = {{"a=3Db=3d=E4=00-=0A", "a=b=\xe4-\n"}, // a NUL does not stay
                                                         {"a=\r\nb=\nc=\rd=\n\n", "abcd"},      // soft breaks
                                                         {"=G5=5G=GG", "\xf5\xff\xff"},         // no hex digits
                                                         {"a=", "a"},                           // cut off
                                                         {"a=4", "a"},
                                                         {"a=\r", "a"}};
    for (const auto& [pszText, pszExpected] : CASES)
        EXPECT_EQ(QuotedPrintableDecode(pszText).View(), pszExpected) << pszText;
}

TEST(Xtext, HasOnlyPlainPrintableCharacters)
{
    EXPECT_EQ(XtextEncode("a+b=c d!~\xe4\x7f\r\n\0b"sv).View(), "a+2bb+3dc+20d!~+e4+7f+0d+0a"); // up to the NUL
}

} // namespace
