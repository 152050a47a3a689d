#include "Bex/CFileChangeMonitor.h"
#include "Bex/CFileTreeChangeMonitor.h"
#include "support/CLogRecorder.h"
#include "support/CTemporaryDirectory.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Bex;
using Platform::ETreeAction;
using testing::ContainsRegex;

namespace {

CSimpleString Text(const std::string& strText) { return CSimpleString(std::string_view(strText)); }

TEST(FileChangeMonitorTest, TellsEachChangeOnceUntilTheDirectoryGoes)
{
    const CTemporaryDirectory directory;
    directory.Write("watched/old", "");
    CLogRecorder log;
    CFileChangeMonitor monitor;
    EXPECT_FALSE(monitor.HasChanged());
    monitor.Open(Text(directory / "watched"));
    EXPECT_FALSE(monitor.HasChanged());
    directory.Write("watched/new", "x");
    EXPECT_TRUE(monitor.HasChanged());
    EXPECT_FALSE(monitor.HasChanged());
    std::filesystem::remove_all(directory / "watched");
    EXPECT_EQ(log.Take(), "");
    EXPECT_TRUE(monitor.HasChanged());
    EXPECT_THAT(log.Take(), ContainsRegex("^3 FindNextChangeNotification in Bex/CFileChangeMonitor:62 failed, "
                                          "error-code: 0x[0-9A-F]+\n$"));
    EXPECT_FALSE(monitor.HasChanged());
    monitor.Open(Text(directory / "watched"));
    EXPECT_EQ(log.Take(), "3 FindFirstChangeNotification in Bex/CFileChangeMonitor:32 on \"" + (directory / "watched") +
                              "\" failed, error-code: 0x00000002\n");
    EXPECT_FALSE(monitor.HasChanged());
    EXPECT_EQ(log.Take(), "");
}

class CTellingMonitor : public CFileTreeChangeMonitor
{
public:
    void OnAdded(const CSimpleString& strName) override { Tell("+", strName); }
    void OnRemoved(const CSimpleString& strName) override { Tell("-", strName); }
    void OnModified(const CSimpleString& strName) override { Tell("*", strName); }
    void OnRenamed(const CSimpleString& strOldName, const CSimpleString& strNewName) override
    {
        Tell("", strOldName);
        Tell(">", strNewName);
    }
    std::string m_strTold;

private:
    void Tell(const char* pszHow, const CSimpleString& strName)
    {
        m_strTold.append(pszHow).append(strName).append(" ");
    }
};

TEST(FileTreeChangeMonitorTest, EachRecordReachesItsHandlerAndRepetitionsCollapse)
{
    CLogRecorder log;
    CTellingMonitor monitor;
    const Platform::STreeRecord records[] = {
        {ETreeAction::Added, "a"},         {ETreeAction::Modified, "a"},  {ETreeAction::Modified, "a"},
        {ETreeAction::Modified, "b"},      {ETreeAction::Added, "b"},     {ETreeAction::Removed, "b"},
        {ETreeAction::RenamedFrom, "c/d"}, {ETreeAction::RenamedTo, "e"}, {static_cast<ETreeAction>(9), "f"}};
    const size_t nCount = std::size(records);
    for (size_t n = 0; n < nCount; ++n)
        EXPECT_TRUE(monitor.OnRecord(records[n], n + 1 < nCount ? &records[n + 1] : nullptr));
    EXPECT_EQ(monitor.m_strTold, "*a *b +b -b c/d >e ");
    EXPECT_EQ(log.Take(), "4 unknown action 9 for file \"f\"\n");
}

TEST(FileTreeChangeMonitorTest, WatchesTheWholeTreeOnceCreated)
{
    const CTemporaryDirectory directory;
    directory.Write("ann/old", "");
    CLogRecorder log;
    CTellingMonitor monitor;
    EXPECT_FALSE(monitor.HasChanged());
    monitor.Create(Text(directory / "missing"));
    EXPECT_EQ(log.Take(), "3 CreateFile in Bex/CFileTreeChangeMonitor:104 on \"" + (directory / "missing") +
                              "\" failed, error-code: 0x00000002\n");
    monitor.Create(Text(directory.Path()));
    monitor.Create(Text(directory.Path()));
    EXPECT_EQ(log.Take(), "3 CFileTreeChangeMonitor in Bex/CFileTreeChangeMonitor:93 already created\n");
    EXPECT_FALSE(monitor.HasChanged());
    directory.Write("ann/new", "x");
    std::rename((directory / "ann/old").c_str(), (directory / "renamed").c_str());
    EXPECT_TRUE(monitor.HasChanged());
    EXPECT_EQ(monitor.m_strTold, "*ann/new ann/old >renamed ");
    EXPECT_FALSE(monitor.HasChanged());
    monitor.Destroy();
    directory.Write("ann/late", "x");
    EXPECT_FALSE(monitor.HasChanged());
    EXPECT_EQ(log.Take(), "");
}

TEST(FileTreeChangeMonitorTest, ABurstFitsAndALossIsAChange)
{
    const CTemporaryDirectory directory(CTemporaryDirectory::IN_MEMORY);
    directory.Write("ann/old", "");
    CLogRecorder log;
    CTellingMonitor monitor;
    monitor.Create(Text(directory.Path()));
    for (int n = 10'000; n < 15'000; ++n)
        directory.Write("ann/" + std::to_string(n) + ".eml", "x");
    EXPECT_TRUE(monitor.HasChanged());
    EXPECT_EQ(monitor.m_strTold.size(), 5000 * std::string("*ann/10000.eml ").size());
    EXPECT_EQ(log.Take(), "");
    for (int n = 10'000; n < 11'400; ++n)
        directory.Write(std::string(240, 'l') + std::to_string(n), "x");
    EXPECT_TRUE(monitor.HasChanged());
    EXPECT_EQ(log.Take(), "3 GetOverlappedResult in Bex/CFileTreeChangeMonitor:228 indicated insufficient buffer for "
                          "ReadDirectoryChangesW\n");
    EXPECT_FALSE(monitor.HasChanged());
}

} // namespace
