#include "Bex/CConfigFile.h"
#include "Bex/CFileException.h"
#include "Bex/CStorableStringList.h"
#include "Platform/CInjectedFault.h"
#include "Platform/DataOrder.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <climits>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace Bex;
namespace fs = std::filesystem;
using Platform::CInjectedFault, Platform::EFault;

namespace {

std::string TextOf(const CStorableStringList& list)
{
    std::string strText;
    for (const CSimpleString& strEntry : list)
        strText.append(strEntry.View()) += '|';
    return strText;
}

class TableFilesTest : public testing::Test
{
protected:
    CSimpleString Path(const std::string& strName) const { return CSimpleString(m_directory / strName); }
    CSimpleString Write(const std::string& strName, const std::string& strText) const
    {
        return CSimpleString(m_directory.Write(strName, strText));
    }
    CTemporaryDirectory m_directory{CTemporaryDirectory::IN_MEMORY};
    CConfigFile m_config;
};

TEST_F(TableFilesTest, IsFlushedBeforeItReplacesUnlessTheFileSystemOrdersThatOrASectorIsEnough)
{
    EXPECT_FALSE(Platform::OrdersDataBeforeNames("/proc"));
    ASSERT_TRUE(m_config.Load(Write("config", "a: 1\n")));
    const CInjectedFault unflushed(EFault::Flush, 1, EIO, 2);
    m_config.Set("a", "10");
    EXPECT_TRUE(m_config.Save());
    const CInjectedFault replaced(EFault::WriteOut, 1, EIO);
    m_config.Set("a", "11");
    EXPECT_TRUE(m_config.Save() && m_directory.Read("config") == "a: 11\n" && !m_config.HasChanged());
    const CInjectedFault unknown(EFault::FileSystemType, 1, ENOSYS, UINT_MAX);
    m_config.Set("a", "111");
    EXPECT_THROW(m_config.Save(), CFileException);
    m_config.Set("a", "12");
    fs::create_hard_link(Path("config").Text(), Path("backup").Text());
    EXPECT_THROW(m_config.Save(), CFileException);
}

TEST_F(TableFilesTest, AValueIsReadAndTheLinesAreWrittenBack)
{
    const char* const cases[][4] = {
        // the file, a key, its value (null: absent), what a save writes
        {"QueueDir: d:\\q # main queue\n", "QueueDir", "d:\\q", "QueueDir: d:\\q\t# main queue\n"},
        {" \t Key  :\v a  b \f\r\n", "Key", "a  b", "Key: a  b\n"},
        {"\"a:b\" junk : x", "a:b", "x", "\"a:b\": x\n"},
        {"\" a \": x:y", "a", "x:y", "a: x:y\n"},
        {"LogHost: 1.2.3.4:514", "LogHost", "1.2.3.4:514", "LogHost: 1.2.3.4:514\n"},
        {"T: 100\nT: 200 # two\n", "T", "100", "T: 100\n"},
        {"T:\n", "T", "", "T: \n"},
        {": x\n", "", "x", ": x\n"},
        {"key: 1\n", "Key", nullptr, "key: 1\n"},
        {"# top\n\nno pair # why\na: 1\n\n \n", "a", "1", "# top\n\n# why\na: 1\n"},
        {"\"\n\"open: x\n\"a:b\"\nb: 2", "open", nullptr, "\n\n\nb: 2\n"},
        {"a#b: 1\n\"c#\": 2\n", "a#b", nullptr, "#b: 1\n#\": 2\n"},
        {"", "", nullptr, ""},
    };
    for (const auto& [pszText, pszKey, pszValue, pszSaved] : cases) {
        SCOPED_TRACE(pszText);
        CStorableStringHash table;
        ASSERT_TRUE(table.Load(Write("file", pszText)));
        CSimpleString strValue;
        EXPECT_EQ(table.Lookup(pszKey, strValue), pszValue != nullptr);
        EXPECT_EQ(strValue, CSimpleString(pszValue));
        ASSERT_TRUE(table.Save());
        EXPECT_EQ(m_directory.Read("file"), pszSaved);
        EXPECT_FALSE(table.HasChanged());
    }
}

TEST_F(TableFilesTest, SavesWhatChangedBesideWhatDidNot)
{
    ASSERT_TRUE(m_config.Load(Write("config", "# mine\nGone: 1 # too\nNextUID: 7 # next\n")));
    std::filesystem::permissions(m_directory / "config", std::filesystem::perms(0646));
    m_config.SetNextUID(4000000000u);
    m_config.Remove("Gone");
    m_config.Set("a:b", "new");
    EXPECT_TRUE(m_config.IsModified());
    ASSERT_TRUE(m_config.Save());
    EXPECT_FALSE(m_config.IsModified());
    EXPECT_EQ(m_directory.Read("config"), "# mine\nNextUID: 4000000000\t# next\n\"a:b\": new\n");
    EXPECT_EQ(std::filesystem::status(m_directory / "config").permissions(), std::filesystem::perms(0646));
    m_config.SetKeepComments(false);
    const CSimpleString strOther = Path("other");
    ASSERT_TRUE(m_config.Save(&strOther));
    EXPECT_EQ(m_directory.Read("other"), "NextUID: 4000000000\n\"a:b\": new\n");
}

TEST_F(TableFilesTest, TellWhenTheFileWasWrittenLaterAndKeepTheContentOfALostOne)
{
    CStorableStringHash table;
    EXPECT_FALSE(table.HasChanged());
    ASSERT_TRUE(table.Load(Write("file", "a: 1\n")));
    EXPECT_FALSE(table.HasChanged());
    const fs::path path(Path("file").Text());
    fs::last_write_time(path, fs::last_write_time(path) + std::chrono::milliseconds(1));
    EXPECT_TRUE(table.HasChanged());
    ASSERT_TRUE(table.Load(Path("file")));
    EXPECT_FALSE(table.HasChanged());
    fs::last_write_time(Write("older", "b: 2\n").Text(), {});
    fs::rename(Path("older").Text(), path);
    EXPECT_TRUE(table.HasChanged());
    fs::remove(path);
    EXPECT_FALSE(table.HasChanged());
    EXPECT_FALSE(table.Load(Path("file")));
    EXPECT_TRUE(table.Contains("a"));
}

TEST_F(TableFilesTest, StandWhateverIsInTheFile)
{
    using namespace std::string_literals;
    ASSERT_TRUE(m_config.Load(Write("nul", "a: 1\0b: 2\n\0\nc: 3\n"s)));
    EXPECT_EQ(m_config.GetInt("a", 0), 1);
    EXPECT_EQ(m_config.GetInt("c", 0), 3);
    EXPECT_FALSE(m_config.Load(Write("endless", "a: " + std::string(2u << 20, 'x'))));
    fs::create_symlink("/dev/zero", m_directory / "device");
    EXPECT_FALSE(m_config.Load(Path("device")) || CStorableStringList(true).Load(Path("device")));
    ASSERT_EQ(mkfifo(Path("pipe").Text(), 0600), 0);
    EXPECT_FALSE(m_config.Load(Path("")) || m_config.Load(Path("pipe")));
    const CInjectedFault fault(EFault::Read, 1, EIO);
    EXPECT_THROW(m_config.Load(Path("nul")), CFileException);
    EXPECT_EQ(m_config.GetInt("c", 0), 3); // what was loaded stays
}

TEST_F(TableFilesTest, AFailedSaveLeavesTheFileAlone)
{
    ASSERT_TRUE(m_config.Load(Write("config", "a: 1\n")));
    m_config.Set("a", "22");
    const CInjectedFault full(EFault::Write, 1, ENOSPC), broken(EFault::Rename, 1, EIO);
    EXPECT_THROW(m_config.Save(), CFileException);
    EXPECT_FALSE(fs::exists(m_directory / "config.tmp"));
    EXPECT_FALSE(m_config.Save());
    EXPECT_EQ(m_directory.Read("config.tmp"), "a: 22\n"); // for the administrator to find
    EXPECT_EQ(m_directory.Read("config"), "a: 1\n");
    EXPECT_TRUE(m_config.IsModified());
    const CInjectedFault passing(EFault::Rename, 1, EACCES); // passes: tried again
    EXPECT_TRUE(m_config.Save());
    EXPECT_EQ(m_directory.Read("config"), "a: 22\n");
}

TEST_F(TableFilesTest, DefaultsApplyOnlyToAbsentKeys)
{
    EXPECT_EQ(m_config.GetInt("Key", 90), 90);
    EXPECT_EQ(m_config.GetString("Key", "default"), "default");
    EXPECT_EQ(m_config.GetString("Key"), "");
    EXPECT_EQ(m_config.GetLocalPartDelimiter(), '+');
    const std::pair<const char*, int> cases[] = {{"", 0},
                                                 {"yes", 0},
                                                 {"10min", 10},
                                                 {" -3", -3},
                                                 {"+4 5", 4},
                                                 {"1e3", 1},
                                                 {"99999999999", INT_MAX},
                                                 {"-99999999999", INT_MIN}};
    for (const auto& [pszValue, iExpected] : cases) {
        m_config.Set("Key", pszValue);
        EXPECT_EQ(m_config.GetInt("Key", 90), iExpected) << pszValue;
        EXPECT_EQ(m_config.GetString("Key", "default"), pszValue);
    }
    m_config.Set("LocalPart.Delimiter", "");
    EXPECT_EQ(m_config.GetLocalPartDelimiter(), '+');
    m_config.Set("LocalPart.Delimiter", "-+");
    EXPECT_EQ(m_config.GetLocalPartDelimiter(), '-');
}

class CPickyList : public CStorableStringList
{
public:
    using CStorableStringList::CStorableStringList;
    bool bEnd = true;

protected:
    bool OnLoadLine(CSimpleString& strEntry) override { return strEntry != "no"; }
    bool OnLoadEnd() override { return bEnd; }
};

TEST_F(TableFilesTest, AListTrimsOnlyWhenAskedAndItsHooksRefuseEntriesAndLoads)
{
    const CSimpleString strPath =
        Write("list", "One.example  # first\r\n\n#only\n two words \nno\nOne.example\n \nlast#");
    CPickyList trimmed(true), exact(false);
    ASSERT_TRUE(trimmed.Load(strPath) && exact.Load(strPath));
    EXPECT_EQ(TextOf(trimmed), "One.example|two words|One.example|last|");
    EXPECT_EQ(TextOf(exact), "One.example  | two words |One.example| |last|");
    EXPECT_TRUE(trimmed.ContainsExact("two words"));
    EXPECT_FALSE(trimmed.ContainsExact("one.example"));
    ASSERT_TRUE(trimmed.Load(strPath)); // replaces
    EXPECT_EQ(trimmed.Count(), 4u);
    trimmed.bEnd = false;
    EXPECT_FALSE(trimmed.Load(strPath));
}

} // namespace
