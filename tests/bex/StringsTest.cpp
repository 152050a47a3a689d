#include "Bex/CSimpleString.h"
#include "Bex/CTime.h"
#include "Bex/TextFunctions.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string>
#include <string_view>
#include <time.h>

using namespace Bex;
using namespace std::string_view_literals;

namespace {

TEST(StringsTest, ACopyIsItsOwn)
{
    CSimpleString str("text");
    CSimpleString strCopy(str);
    strCopy.Set(0, 'n');
    strCopy += '!';
    EXPECT_EQ(str, "text");
    EXPECT_EQ(strCopy, "next!");
    str = str.View().substr(1); // from its own text
    EXPECT_EQ(str, "ext");
}

TEST(StringsTest, WhatFollowsANulDoesNotSurviveGrowth)
{
    const CSimpleString str("ab\0cd"sv);
    EXPECT_EQ(str.Length(), 5U);
    EXPECT_EQ(CSimpleString(str).Append('x'), "abx");
    EXPECT_EQ(CSimpleString(str).Append(""), "ab");
    EXPECT_EQ(CSimpleString("x").Append(str), "xab");
    EXPECT_EQ(CSimpleString::Formatted("%s", str.Text()), "ab");
    CSimpleString strLong(std::string(100'000, 'x'));
    strLong.Format("<%s>", strLong.Text()); // no upper limit, and its own text as the argument
    EXPECT_EQ(strLong.Length(), 100'002U);
    CSimpleString strSelf("abc");
    strSelf.Append(strSelf).Append(strSelf.View().substr(1));
    EXPECT_EQ(strSelf, "abcabcbcabc");
}

TEST(TextFunctionsTest, Wildcards)
{
    EXPECT_TRUE(WildcardMatchCase("", "*") && WildcardMatchCase("abc", "a?c"));
    EXPECT_FALSE(WildcardMatchCase("ac", "a?c") || WildcardMatchCase("ab", "ab?"));
    EXPECT_FALSE(WildcardMatchCase("ABC", "a?c"));
    EXPECT_TRUE(WildcardMatch("ABC", "a?c"));
    EXPECT_TRUE(WildcardMatchCase("a.b.example.org", "*.example.org*"));
    EXPECT_FALSE(WildcardMatchCase("a*c", "*"));
    EXPECT_FALSE(WildcardMatch(std::string(2000, 'a'), "*a*a*a*a*a*a*a*a*a*a*a*a*b")); // and does not take for ever
}

TEST(TimeTest, AMailDateShowsLocalTimeAndZone)
{
    const CTime time(1388858585); // 2014-01-04 18:03:05 UTC
    for (const auto& [pszZone, pszExpected] :
         {std::pair("CET-1", "Sat, 4 Jan 2014 19:03:05 +0100"), {"NST3:30", "Sat, 4 Jan 2014 14:33:05 -0330"}}) {
        setenv("TZ", pszZone, 1);
        tzset();
        EXPECT_EQ(time.MailDate(), pszExpected);
    }
    unsetenv("TZ");
    tzset();
}

} // namespace
