#include "Bex/CStorableStringList.h"
#include "support/CTemporaryDirectory.h"

#include <gmock/gmock.h>

using namespace Bex;
using testing::ElementsAre;

namespace {

constexpr char TEXT[] = "One.example  # first\r\n\n#only\n two words \nOne.example\n \nlast#";

std::vector<std::string> Entries(const CStorableStringList& list)
{
    std::vector<std::string> entries;
    for (const CSimpleString& strEntry : list)
        entries.emplace_back(strEntry.View());
    return entries;
}

TEST(ListFile, TrimsOnlyWhenAsked)
{
    const CTemporaryDirectory directory;
    const CSimpleString strPath(directory.Write("list", TEXT));
    CStorableStringList trimmed(true), exact(false);
    ASSERT_TRUE(trimmed.Load(strPath));
    EXPECT_THAT(Entries(trimmed), ElementsAre("One.example", "two words", "One.example", "last"));
    ASSERT_TRUE(exact.Load(strPath));
    EXPECT_THAT(Entries(exact), ElementsAre("One.example  ", " two words ", "One.example", " ", "last"));
    EXPECT_TRUE(trimmed.ContainsExact("two words"));
    EXPECT_FALSE(trimmed.ContainsExact("one.example"));
}

TEST(ListFile, ReloadReplacesAndAVanishedFileChangesNothing)
{
    const CTemporaryDirectory directory;
    const std::string strPath = directory.Write("list", "a\n");
    CStorableStringList list(true);
    ASSERT_TRUE(list.Load(CSimpleString(strPath)));
    EXPECT_FALSE(list.HasFileChanged());
    const auto time = std::filesystem::last_write_time(strPath);
    directory.Write("list", "b\n");
    std::filesystem::last_write_time(strPath, time + std::chrono::seconds(1));
    EXPECT_TRUE(list.HasFileChanged());
    ASSERT_TRUE(list.Load(list.FileName()));
    EXPECT_FALSE(list.HasFileChanged());
    std::filesystem::remove(strPath);
    EXPECT_FALSE(list.HasFileChanged());
    EXPECT_FALSE(list.Load(CSimpleString(strPath)));
    EXPECT_THAT(Entries(list), ElementsAre("b"));
    std::filesystem::create_symlink("/dev/zero", strPath);
    EXPECT_FALSE(list.Load(CSimpleString(strPath)));
}

class CPickyList : public CStorableStringList
{
public:
    CPickyList() : CStorableStringList(true) {}
    bool bEnd = true;

protected:
    bool OnLoadLine(CSimpleString& strEntry) override { return strEntry != "no"; }
    bool OnLoadEnd() override { return bEnd; }
};

TEST(ListFile, HooksRefuseEntriesAndLoads)
{
    const CTemporaryDirectory directory;
    const CSimpleString strPath(directory.Write("list", "yes\nno\n"));
    CPickyList list;
    ASSERT_TRUE(list.Load(strPath));
    EXPECT_THAT(Entries(list), ElementsAre("yes"));
    list.bEnd = false;
    EXPECT_FALSE(list.Load(strPath));
}

} // namespace
