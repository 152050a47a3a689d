#include "Common/CMail.h"
#include "Common/NormalizeAddress.h"

#include <gtest/gtest.h>
#include <tuple>

namespace {

TEST(NormalizeAddress, GivesTheBareAddress)
{
    const std::pair<const char*, const char*> CASES[] = {
        {"\"Ann\" <Ann@Example.ORG>", "Ann@example.org"},
        {"<1@Host> (c) <2@Host>", "1@host"},
        {"ann@Example.org (Ann)", "ann@example.org"},
        {"Ann (x) <ann@a.b(c)>", "ann@a.b(c)"},
        {"<>", ""},
        {" \t<\r\n ann@a.b > ", "ann@a.b"},
        {"\"ann\"@'a'.b", "ann@a.b"},
        {"<ann@a", "ann@a"},
        {">Ann@A<Bob@B", "Bob@b"}, // no closing bracket behind the opening
        {"A@B,C@D", "A@b,c@d"},    // lower from the first @ on
        {"<A@B>,<C@D>", "A@b"},
        {"a@B@C", "a@b@c"}};
    for (const auto& [pszText, pszExpected] : CASES)
        EXPECT_EQ(NormalizeAddress(pszText).View(), pszExpected) << pszText;
}

TEST(SetFrom, PartsAddressAndName)
{
    using CText = std::string_view;
    // value, address, name
    const std::tuple<const char*, CText, CText> CASES[] = {
        {"\"Ann B\" <Ann@A.b>", "Ann@A.b", "Ann B"},
        {"\"A\" \"B\" <a@b>", "a@b", "A\" \"B"},
        {"A\"nn <a@b>", "a@b", "nn <a@b>"}, // one quote: all behind it
        {"<a@b>", "a@b", ""},
        {"<a<b>c>", "a<b>c", ""},
        {">x<", "", ">x"},
        {"a@b (Ann (B))", "a@b", "Ann (B)"},
        {"a@b )Ann(", "a@b", ""},
        {"a@b Ann", "a@b", "Old"}, // says nothing of the name
        {"a@b(Ann)", "a@b(Ann)", "Old"}};
    for (const auto& [pszValue, address, name] : CASES) {
        CMail mail;
        mail.SetFrom("old (Old)");
        mail.SetFrom(pszValue);
        EXPECT_EQ(mail.FromAddress().View(), address) << pszValue;
        EXPECT_EQ(mail.FromName().View(), name) << pszValue;
    }
}

} // namespace
