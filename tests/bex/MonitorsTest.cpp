#include "Bex/CFileChangeMonitor.h"
#include "Bex/CFileTreeChangeMonitor.h"
#include "support/CLogRecorder.h"
#include "support/CTemporaryDirectory.h"

#include <cstdio>
#include <gmock/gmock.h>

using namespace Bex;
using Platform::ETreeAction;

namespace {

TEST(FileChangeMonitorTest, TellsEachChangeOnceUntilTheDirectoryGoes)
{
    const CTemporaryDirectory directory;
    directory.Write("watched/old", "");
    const CSimpleString strWatched(directory / "watched");
    CLogRecorder log;
    CFileChangeMonitor monitor;
    EXPECT_FALSE(monitor.HasChanged());
    monitor.Open(strWatched);
    EXPECT_FALSE(monitor.HasChanged());
    directory.Write("watched/new", "x");
    EXPECT_TRUE(monitor.HasChanged());
    EXPECT_FALSE(monitor.HasChanged());
    std::filesystem::remove_all(strWatched.Text());
    EXPECT_EQ(log.Take(), "");
    EXPECT_TRUE(monitor.HasChanged());
    EXPECT_THAT(log.Take(), testing::ContainsRegex("^3 FindNextChangeNotification in Bex/CFileChangeMonitor:62 failed, "
                                                   "error-code: 0x[0-9A-F]+\n$"));
    EXPECT_FALSE(monitor.HasChanged());
    monitor.Open(strWatched);
    EXPECT_EQ(log.Take(), "3 FindFirstChangeNotification in Bex/CFileChangeMonitor:32 on \"" + std::string(strWatched) +
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
    void OnRenamed(const CSimpleString& strOld, const CSimpleString& strNew) override
    {
        Tell("", strOld);
        Tell(">", strNew);
    }
    std::string m_strTold;

private:
    void Tell(const char* pszHow, const CSimpleString& strName) { m_strTold.append(pszHow).append(strName) += ' '; }
};

class FileTreeChangeMonitorTest : public testing::Test
{
protected:
    FileTreeChangeMonitorTest() { m_directory.Write("ann/old", ""); }
    const CTemporaryDirectory m_directory{CTemporaryDirectory::IN_MEMORY};
    const CSimpleString m_strRoot{m_directory.Path().c_str()};
    CLogRecorder m_log;
    CTellingMonitor m_monitor;
};

TEST_F(FileTreeChangeMonitorTest, EachRecordReachesItsHandlerAndRepetitionsCollapse)
{
    const Platform::STreeRecord records[] = {
        {ETreeAction::Added, "a"},         {ETreeAction::Modified, "a"},  {ETreeAction::Modified, "a"},
        {ETreeAction::Modified, "b"},      {ETreeAction::Added, "b"},     {ETreeAction::Removed, "b"},
        {ETreeAction::RenamedFrom, "c/d"}, {ETreeAction::RenamedTo, "e"}, {static_cast<ETreeAction>(9), "f"}};
    const size_t nCount = std::size(records);
    for (size_t n = 0; n < nCount; ++n)
        EXPECT_TRUE(m_monitor.OnRecord(records[n], n + 1 < nCount ? &records[n + 1] : nullptr));
    EXPECT_EQ(m_monitor.m_strTold, "*a *b +b -b c/d >e ");
    EXPECT_EQ(m_log.Take(), "4 unknown action 9 for file \"f\"\n");
}

TEST_F(FileTreeChangeMonitorTest, WatchesTheWholeTreeOnceCreated)
{
    EXPECT_FALSE(m_monitor.HasChanged());
    m_monitor.Create(CSimpleString(m_directory / "missing"));
    EXPECT_EQ(m_log.Take(), "3 CreateFile in Bex/CFileTreeChangeMonitor:104 on \"" + (m_directory / "missing") +
                                "\" failed, error-code: 0x00000002\n");
    m_monitor.Create(m_strRoot);
    m_monitor.Create(m_strRoot);
    EXPECT_EQ(m_log.Take(), "3 CFileTreeChangeMonitor in Bex/CFileTreeChangeMonitor:93 already created\n");
    EXPECT_FALSE(m_monitor.HasChanged());
    m_directory.Write("ann/new", "x");
    std::rename((m_directory / "ann/old").c_str(), (m_directory / "renamed").c_str());
    EXPECT_TRUE(m_monitor.HasChanged());
    EXPECT_EQ(m_monitor.m_strTold, "*ann/new ann/old >renamed ");
    EXPECT_FALSE(m_monitor.HasChanged());
    m_monitor.Destroy();
    m_directory.Write("ann/late", "x");
    EXPECT_FALSE(m_monitor.HasChanged());
    EXPECT_EQ(m_log.Take(), "");
}

TEST_F(FileTreeChangeMonitorTest, ABurstFitsAndALossIsAChange)
{
    m_monitor.Create(m_strRoot);
    for (int n = 10'000; n < 15'000; ++n)
        m_directory.Write("ann/" + std::to_string(n) + ".eml", "x");
    EXPECT_TRUE(m_monitor.HasChanged());
    EXPECT_EQ(m_monitor.m_strTold.size(), 5000 * std::string("*ann/10000.eml ").size());
    EXPECT_EQ(m_log.Take(), "");
    for (int n = 10'000; n < 11'400; ++n)
        m_directory.Write(std::string(240, 'l') + std::to_string(n), "x");
    EXPECT_TRUE(m_monitor.HasChanged());
    EXPECT_EQ(m_log.Take(), "3 GetOverlappedResult in Bex/CFileTreeChangeMonitor:228 indicated insufficient buffer for "
                            "ReadDirectoryChangesW\n");
    EXPECT_FALSE(m_monitor.HasChanged());
}

} // namespace
