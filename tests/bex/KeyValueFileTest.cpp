#include "Bex/CConfigFile.h"
#include "Bex/CFileException.h"
#include "Platform/FaultInjection.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <climits>
#include <gtest/gtest.h>

using namespace Bex;

namespace {

struct FileCase
{
    const char* text;
    const char* key;
    const char* value; ///< null: the key is absent
    const char* saved; ///< what a save writes
};

class KeyValueFileTest : public testing::TestWithParam<FileCase>
{};

TEST_P(KeyValueFileTest, ReadsTheValueAndWritesTheLinesBack)
{
    const CTemporaryDirectory directory;
    const CSimpleString strPath(directory.Write("file", GetParam().text));
    CStorableStringHash table;
    ASSERT_TRUE(table.Load(strPath));
    CSimpleString strValue;
    EXPECT_EQ(table.Lookup(GetParam().key, strValue), GetParam().value != nullptr);
    EXPECT_EQ(strValue, CSimpleString(GetParam().value));
    ASSERT_TRUE(table.Save());
    EXPECT_EQ(directory.Read("file"), GetParam().saved);
    EXPECT_FALSE(table.HasChanged());
}

INSTANTIATE_TEST_SUITE_P(
    Lines, KeyValueFileTest,
    testing::Values(FileCase{"QueueDir: d:\\q # main queue\n", "QueueDir", "d:\\q", "QueueDir: d:\\q\t# main queue\n"},
                    FileCase{" \t Key  :\v a  b \f\r\n", "Key", "a  b", "Key: a  b\n"},
                    FileCase{"\"a:b\" junk : x", "a:b", "x", "\"a:b\": x\n"},
                    FileCase{"\" a \": x:y", "a", "x:y", "a: x:y\n"},
                    FileCase{"LogHost: 1.2.3.4:514", "LogHost", "1.2.3.4:514", "LogHost: 1.2.3.4:514\n"},
                    FileCase{"T: 100\nT: 200 # two\n", "T", "100", "T: 100\n"}, FileCase{"T:\n", "T", "", "T: \n"},
                    FileCase{": x\n", "", "x", ": x\n"}, FileCase{"key: 1\n", "Key", nullptr, "key: 1\n"},
                    FileCase{"# top\n\nno pair # why\na: 1\n\n \n", "a", "1", "# top\n\n# why\na: 1\n"},
                    FileCase{"\"\n\"open: x\n\"a:b\"\nb: 2", "open", nullptr, "\n\n\nb: 2\n"},
                    FileCase{"a#b: 1\n\"c#\": 2\n", "a#b", nullptr, "#b: 1\n#\": 2\n"}, FileCase{"", "", nullptr, ""}));

TEST(KeyValueFile, SavesWhatChangedBesideWhatDidNot)
{
    const CTemporaryDirectory directory;
    CConfigFile account;
    ASSERT_TRUE(account.Load(CSimpleString(directory.Write("config", "# mine\nGone: 1 # too\nNextUID: 7 # next\n"))));
    account.SetNextUID(4000000000u);
    account.Remove("Gone");
    account.Set("a:b", "new");
    EXPECT_TRUE(account.IsModified());
    ASSERT_TRUE(account.Save());
    EXPECT_FALSE(account.IsModified());
    EXPECT_EQ(directory.Read("config"), "# mine\nNextUID: 4000000000\t# next\n\"a:b\": new\n");
    account.SetKeepComments(false);
    const CSimpleString strOther(directory / "other");
    ASSERT_TRUE(account.Save(&strOther));
    EXPECT_EQ(directory.Read("other"), "NextUID: 4000000000\n\"a:b\": new\n");
}

TEST(KeyValueFile, TellsWhenTheFileWasWrittenLater)
{
    const CTemporaryDirectory directory;
    const std::string strPath = directory.Write("file", "a: 1\n");
    CStorableStringHash table;
    EXPECT_FALSE(table.HasChanged());
    ASSERT_TRUE(table.Load(CSimpleString(strPath)));
    EXPECT_FALSE(table.HasChanged());
    const auto time = std::filesystem::last_write_time(strPath);
    std::filesystem::last_write_time(strPath, time + std::chrono::milliseconds(1));
    EXPECT_TRUE(table.HasChanged());
    std::filesystem::remove(strPath);
    EXPECT_FALSE(table.HasChanged());
    EXPECT_FALSE(table.Load(CSimpleString(strPath)));
    EXPECT_TRUE(table.Contains("a")) << "a file that cannot be opened must leave the content alone";
}

TEST(KeyValueFile, StandsWhateverIsInTheFile)
{
    const CTemporaryDirectory directory;
    CConfigFile account;
    using namespace std::string_literals;
    ASSERT_TRUE(account.Load(CSimpleString(directory.Write("nul", "a: 1\0b: 2\n\0\nc: 3\n"s))));
    EXPECT_EQ(account.GetInt("a", 0), 1);
    EXPECT_EQ(account.GetInt("c", 0), 3);
    EXPECT_FALSE(account.Load(CSimpleString(directory.Write("endless", "a: " + std::string(2u << 20, 'x')))));
    std::filesystem::create_symlink("/dev/zero", directory / "device");
    EXPECT_FALSE(account.Load(CSimpleString(directory / "device")));
    EXPECT_FALSE(account.Load(CSimpleString(directory.Path().string())));

    const CSimpleString strPath(directory.Write("config", "a: 1\n"));
    ASSERT_TRUE(account.Load(strPath));
    const Platform::CInjectedFault fault(Platform::EFault::Read, 1, EIO);
    EXPECT_THROW(account.Load(strPath), CFileException);
}

TEST(KeyValueFile, FailedSaveLeavesTheFileAlone)
{
    const CTemporaryDirectory directory;
    const CSimpleString strPath(directory.Write("config", "a: 1\n"));
    CConfigFile account;
    ASSERT_TRUE(account.Load(strPath));
    account.Set("a", "2");
    const Platform::CInjectedFault full(Platform::EFault::Write, 1, ENOSPC), broken(Platform::EFault::Rename, 1, EIO);
    EXPECT_THROW(account.Save(), CFileException);
    EXPECT_FALSE(std::filesystem::exists(directory / "config.tmp"));
    EXPECT_FALSE(account.Save());
    EXPECT_EQ(directory.Read("config.tmp"), "a: 2\n"); // for the administrator to find
    EXPECT_EQ(directory.Read("config"), "a: 1\n");
    EXPECT_TRUE(account.IsModified());
    const Platform::CInjectedFault passing(Platform::EFault::Rename, 1, EACCES); // passes: tried again
    EXPECT_TRUE(account.Save());
    EXPECT_EQ(directory.Read("config"), "a: 2\n");
}

TEST(ConfigFile, DefaultsApplyOnlyToAbsentKeys)
{
    struct
    {
        const char* value;
        int expected;
    } const cases[] = {{"", 0},
                       {"yes", 0},
                       {"10min", 10},
                       {" -3", -3},
                       {"+4 5", 4},
                       {"1e3", 1},
                       {"99999999999", INT_MAX},
                       {"-99999999999", INT_MIN}};
    CConfigFile config;
    EXPECT_EQ(config.GetInt("Key", 90), 90);
    EXPECT_EQ(config.GetString("Key", "default"), "default");
    EXPECT_EQ(config.GetString("Key"), "");
    EXPECT_EQ(config.GetLocalPartDelimiter(), '+');
    for (const auto& one : cases) {
        config.Set("Key", one.value);
        EXPECT_EQ(config.GetInt("Key", 90), one.expected) << one.value;
        EXPECT_EQ(config.GetString("Key", "default"), one.value);
    }
    config.Set("LocalPart.Delimiter", "");
    EXPECT_EQ(config.GetLocalPartDelimiter(), '+');
    config.Set("LocalPart.Delimiter", "-+");
    EXPECT_EQ(config.GetLocalPartDelimiter(), '-');
}

} // namespace
