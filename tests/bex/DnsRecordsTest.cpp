#include "Bex/DnsRecords.h"

#include <gtest/gtest.h>

using namespace Bex;

namespace {

struct NameCase
{
    std::string_view data;
    const char* name; ///< null: malformed
};
class DnsNameTest : public testing::TestWithParam<NameCase>
{};

TEST_P(DnsNameTest, IsReadWholeOrNotAtAll)
{
    CSimpleString strName("before");
    EXPECT_EQ(DecodeDnsName(GetParam().data, strName), GetParam().name != nullptr);
    EXPECT_EQ(strName, GetParam().name != nullptr ? GetParam().name : "before");
}

INSTANTIATE_TEST_SUITE_P(Names, DnsNameTest,
                         testing::Values(NameCase{{"\2mx\4test\0", 9}, "mx.test"}, NameCase{{"\0", 1}, "."},
                                         NameCase{{"\0\0", 2}, nullptr}, NameCase{{"\2mx", 3}, nullptr},
                                         NameCase{{"\3mx\0", 4}, nullptr}, NameCase{{"\300\14\0", 3}, nullptr},
                                         NameCase{"", nullptr}, NameCase{{"\3a b\0", 5}, "a\\032b"}));

} // namespace
