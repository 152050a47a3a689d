#include "Platform/CDirectoryWatch.h"
#include "Platform/CTreeWatch.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"
#include "support/CTemporaryDirectory.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Platform;

namespace {

constexpr unsigned DEADLINE = 10'000; ///< milliseconds, of what takes a few
using EResult = CDirectoryWatch::EResult;

void Touch(const std::string& strPath) { std::ofstream(strPath) << "x"; }

struct Change
{
    const char* pszWhat;
    std::function<void(const CTemporaryDirectory&)> make;
    EResult expected;
};

class DirectoryWatchTest : public testing::TestWithParam<Change>
{};

TEST_P(DirectoryWatchTest, TellsOnceOfNamesAndFinishedWrites)
{
    const CTemporaryDirectory directory;
    directory.Write("watched/old", "old");
    directory.Write("watched/below/x", "");
    directory.Write("outside", "");
    CDirectoryWatch watch;
    ASSERT_TRUE(watch.Open((directory / "watched").c_str()));
    EXPECT_EQ(watch.Consume(), EResult::Unchanged);
    GetParam().make(directory);
    const EWaitResult expectedWait =
        GetParam().expected == EResult::Unchanged ? EWaitResult::TimedOut : EWaitResult::Signalled;
    EXPECT_EQ(WaitAny({&watch}, 0), expectedWait);
    EXPECT_EQ(WaitAny({&watch}, 0), expectedWait); // waiting consumes nothing
    EXPECT_EQ(watch.Consume(), GetParam().expected);
    if (GetParam().expected != EResult::Broken) {
        EXPECT_EQ(watch.Consume(), EResult::Unchanged);
    }
    EXPECT_TRUE(watch.Close());
    EXPECT_EQ(WaitAny({&watch}, 0), EWaitResult::TimedOut);
}

INSTANTIATE_TEST_SUITE_P(
    Changes, DirectoryWatchTest,
    testing::Values(
        Change{"new", [](auto& dir) { dir.Write("watched/new", ""); }, EResult::Changed},
        Change{"written", [](auto& dir) { dir.Write("watched/old", "new"); }, EResult::Changed},
        Change{"deleted", [](auto& dir) { unlink((dir / "watched/old").c_str()); }, EResult::Changed},
        Change{"moved in", [](auto& dir) { std::filesystem::rename(dir / "outside", dir / "watched/in"); },
               EResult::Changed},
        Change{"moved out", [](auto& dir) { std::filesystem::rename(dir / "watched/old", dir / "out"); },
               EResult::Changed},
        Change{"linked in", [](auto& dir) { std::filesystem::create_hard_link(dir / "outside", dir / "watched/in"); },
               EResult::Changed},
        Change{"read", [](auto& dir) { dir.Read("watched/old"); }, EResult::Unchanged},
        Change{"below", [](auto& dir) { dir.Write("watched/below/x", "y"); }, EResult::Unchanged},
        Change{"directory deleted", [](auto& dir) { std::filesystem::remove_all(dir / "watched"); }, EResult::Broken},
        Change{"directory renamed", [](auto& dir) { std::filesystem::rename(dir / "watched", dir / "away"); },
               EResult::Broken}),
    [](const auto& change) {
        std::string strName = change.param.pszWhat;
        std::replace(strName.begin(), strName.end(), ' ', '_');
        return strName;
    });

TEST(DirectoryWatchOpenTest, RefusesWhatIsNoDirectory)
{
    const CTemporaryDirectory directory;
    CDirectoryWatch watch;
    EXPECT_FALSE(watch.Open((directory / "missing").c_str()));
    EXPECT_EQ(LastError().dwSysError, SYS_FILE_NOT_FOUND);
    EXPECT_FALSE(watch.Open(directory.Write("file", "").c_str()));
    EXPECT_EQ(LastError().dwSysError, SYS_PATH_NOT_FOUND);
    EXPECT_FALSE(watch.IsOpen());
}

/// Enough events to fill the kernel's queue and what reads from it: one name after the other, so that they are not
/// merged.
void OverflowQueue(const std::string& strPath)
{
    int iMost = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> iMost;
    if (iMost == 0 || iMost > 100'000)
        GTEST_SKIP() << "the queue is too long to be filled";
    for (int n = 0; n <= iMost / 2 + 1000; ++n) {
        close(open(strPath.c_str(), O_CREAT | O_RDONLY | O_CLOEXEC, 0600));
        unlink(strPath.c_str());
    }
}

TEST(DirectoryWatchOpenTest, AnOverflowIsAChange)
{
    const CTemporaryDirectory directory;
    CDirectoryWatch watch;
    ASSERT_TRUE(watch.Open(directory.Path().c_str()));
    OverflowQueue(directory / "x");
    EXPECT_EQ(watch.Consume(), EResult::Changed);
    Touch(directory / "y");
    EXPECT_EQ(watch.Consume(), EResult::Changed);
}

class TreeWatchTest : public testing::Test
{
protected:
    TreeWatchTest() { m_directory.Write("tree/a/old", ""); }
    void Open(size_t nBufferBytes = 1 << 20, CTreeWatch::Filter filter = nullptr)
    {
        ASSERT_TRUE(m_watch.Open((m_directory / "tree").c_str(), nBufferBytes, std::move(filter)));
    }
    std::string InTree(const std::string& strName) const { return m_directory / ("tree/" + strName); }
    void MakeDirectory(const std::string& strName) { std::filesystem::create_directories(InTree(strName)); }
    void Move(const std::string& strFrom, const std::string& strTo)
    {
        ASSERT_EQ(std::rename((m_directory / strFrom).c_str(), (m_directory / strTo).c_str()), 0);
    }
    /// What is known now, as "+added -removed *modified old>new ".
    std::string Fetched()
    {
        std::vector<STreeRecord> records;
        EXPECT_TRUE(m_watch.Fetch(records)) << "records were lost";
        std::string strSeen;
        for (const STreeRecord& record : records) {
            if (record.action != ETreeAction::RenamedFrom && record.action != ETreeAction::RenamedTo)
                strSeen += " +-*"[static_cast<size_t>(record.action)];
            strSeen += record.strName;
            strSeen += record.action == ETreeAction::RenamedFrom ? '>' : ' ';
        }
        return strSeen;
    }
    /// Waits, too, for what the watch finds out only after a while.
    std::string FetchedInTheEnd()
    {
        EXPECT_EQ(WaitAny({&m_watch}, DEADLINE), EWaitResult::Signalled);
        return Fetched();
    }
    CTemporaryDirectory m_directory;
    CTreeWatch m_watch;
};

TEST_F(TreeWatchTest, TellsWhatHappensToFilesInOrder)
{
    m_directory.Write("outside", "");
    Open();
    EXPECT_EQ(Fetched(), "");
    Touch(InTree("new"));
    EXPECT_EQ(FetchedInTheEnd(), "*new ");
    Touch(InTree("a/new"));
    Touch(InTree("a/new"));
    Touch(InTree("a/old"));
    EXPECT_EQ(Fetched(), "*a/new *a/old "); // without waiting for the background
    ASSERT_EQ(link(InTree("a/old").c_str(), InTree("a/link").c_str()), 0);
    ASSERT_EQ(unlink(InTree("a/new").c_str()), 0);
    Touch(InTree("a/new"));
    EXPECT_EQ(Fetched(), "+a/link -a/new *a/new ");
    Move("tree/a/old", "tree/old");
    Move("outside", "tree/in");
    EXPECT_EQ(Fetched(), "a/old>old +in ");
    Move("tree/in", "out");
    EXPECT_EQ(FetchedInTheEnd(), "-in "); // no second half came
    EXPECT_EQ(WaitAny({&m_watch}, 0), EWaitResult::TimedOut);
}

TEST_F(TreeWatchTest, FollowsDirectoriesThatAppearMoveAndGo)
{
    m_directory.Write("incoming/deep/file", "");
    Open();
    std::filesystem::create_directories(InTree("b/c/d"));
    Touch(InTree("b/c/d/file"));
    std::string strSeen = Fetched();
    for (const char* pszName : {"+b", "+b/c", "+b/c/d", "b/c/d/file"})
        EXPECT_NE(strSeen.find(pszName), std::string::npos) << strSeen;
    Touch(InTree("b/c/d/file"));
    EXPECT_EQ(Fetched(), "*b/c/d/file ");
    Move("tree/b/c", "tree/a/moved");
    Touch(InTree("a/moved/d/file"));
    EXPECT_EQ(Fetched(), "b/c>a/moved *a/moved/d/file ");
    Move("incoming", "tree/in");
    strSeen = Fetched();
    EXPECT_NE(strSeen.find("+in/deep/file"), std::string::npos) << strSeen;
    Touch(InTree("in/deep/file"));
    EXPECT_EQ(Fetched(), "*in/deep/file ");
    Move("tree/in", "left");
    EXPECT_EQ(FetchedInTheEnd(), "-in ");
    Touch(m_directory / "left/deep/file"); // not ours any more
    std::filesystem::remove_all(InTree("a/moved"));
    EXPECT_EQ(Fetched(), "-a/moved/d/file -a/moved/d -a/moved ");
    ASSERT_EQ(symlink((m_directory / "left").c_str(), InTree("link").c_str()), 0);
    Touch(m_directory / "left/deep/file");
    EXPECT_EQ(Fetched(), "+link ");
}

TEST_F(TreeWatchTest, KeepsOnlyWantedNamesAndBothHalvesOfARename)
{
    Open(1 << 20, [](std::string_view strName) { return strName.ends_with("/password"); });
    Touch(InTree("password"));
    Touch(InTree("a/config"));
    Touch(InTree("a/password"));
    Move("tree/a/password", "tree/a/old");
    Move("tree/a/old", "tree/a/older");
    EXPECT_EQ(Fetched(), "*a/password a/password>a/old ");
    EXPECT_EQ(Fetched(), "");
}

TEST_F(TreeWatchTest, SteadyTrafficDoesNotHoldBackAFileThatLeft)
{
    Open();
    Touch(InTree("traffic"));
    Move("tree/a/old", "out");
    std::string strSeen;
    for (const uint64_t ui64Started = TickCount(); TickCount() - ui64Started < DEADLINE;) {
        Touch(InTree("traffic"));
        if ((strSeen = Fetched()).find("-a/old") != std::string::npos)
            break;
    }
    EXPECT_NE(strSeen.find("-a/old"), std::string::npos);
}

TEST_F(TreeWatchTest, ABurstInNewDirectoriesLosesNothing)
{
    constexpr int DIRECTORIES = 50, FILES = 100;
    Open();
    std::thread burst([this] {
        for (int nDirectory = 0; nDirectory < DIRECTORIES; ++nDirectory) {
            MakeDirectory(std::to_string(nDirectory));
            for (int nFile = 0; nFile < FILES; ++nFile)
                Touch(InTree(std::to_string(nDirectory) + "/" + std::to_string(nFile)));
        }
    });
    std::set<std::string> seen;
    std::vector<STreeRecord> records;
    const uint64_t ui64Started = TickCount();
    while (seen.size() < DIRECTORIES * (FILES + 1) && TickCount() - ui64Started < DEADLINE) {
        WaitAny({&m_watch}, DEADLINE);
        ASSERT_TRUE(m_watch.Fetch(records));
        for (const STreeRecord& record : records)
            seen.insert(record.strName);
    }
    burst.join();
    EXPECT_EQ(seen.size(), static_cast<size_t>(DIRECTORIES * (FILES + 1)));
}

TEST_F(TreeWatchTest, SaysWhenRecordsWereLostAndGoesOn)
{
    Open(100);
    for (int n = 0; n < 10; ++n)
        MakeDirectory(std::to_string(n));
    std::vector<STreeRecord> records;
    EXPECT_EQ(WaitAny({&m_watch}, DEADLINE), EWaitResult::Signalled);
    EXPECT_FALSE(m_watch.Fetch(records));
    EXPECT_FALSE(records.empty());
    Touch(InTree("9/file")); // its directory is watched though its coming was lost
    EXPECT_EQ(Fetched(), "*9/file ");

    Move("tree", "away");
    EXPECT_EQ(WaitAny({&m_watch}, DEADLINE), EWaitResult::Signalled);
    EXPECT_FALSE(m_watch.Fetch(records));
    EXPECT_TRUE(m_watch.Fetch(records));
    m_watch.Close();
    EXPECT_TRUE(m_watch.Fetch(records));
    EXPECT_FALSE(m_watch.Open((m_directory / "tree").c_str(), 100, nullptr));
    EXPECT_EQ(LastError().dwSysError, SYS_FILE_NOT_FOUND);
}

/// The filter stops the background thread, so that the kernel's queue fills.
TEST_F(TreeWatchTest, AKernelQueueThatOverflowsIsALossAndTheTreeIsFoundAgain)
{
    std::mutex gate;
    Open(1 << 20, [&gate](std::string_view) { return std::lock_guard(gate), true; });
    {
        const std::lock_guard closed(gate);
        Touch(InTree("first"));
        OverflowQueue(InTree("x"));
        MakeDirectory("unseen/below");
    }
    std::vector<STreeRecord> records;
    EXPECT_FALSE(m_watch.Fetch(records));
    Touch(InTree("unseen/below/file"));
    EXPECT_EQ(Fetched(), "*unseen/below/file ");
}

TEST_F(TreeWatchTest, ManyDirectoriesAreWatchedQuickly)
{
    constexpr int DIRECTORIES = 10'000;
    for (int n = 0; n < DIRECTORIES; ++n)
        ASSERT_EQ(mkdir(InTree(std::to_string(n)).c_str(), 0700), 0);
    const uint64_t ui64Started = TickCount();
    Open();
    EXPECT_LT(TickCount() - ui64Started, 5000u);
    Touch(InTree(std::to_string(DIRECTORIES - 1) + "/file"));
    EXPECT_EQ(Fetched(), "*9999/file ");
}

} // namespace
