#include "Platform/CDirectoryWatch.h"
#include "Platform/CInjectedFault.h"
#include "Platform/CTreeWatch.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"
#include "support/Becomes.h"
#include "support/CTemporaryDirectory.h"

#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Platform;
using testing::ContainsRegex;
using testing::HasSubstr;

namespace {

constexpr unsigned DEADLINE = 60'000; ///< milliseconds, of what takes a few
using EResult = CDirectoryWatch::EResult;

void Touch(const std::string& strPath) { std::ofstream(strPath) << "x"; }

TEST(DirectoryWatchTest, TellsOnceOfNamesAndFinishedWrites)
{
    const CTemporaryDirectory dir;
    dir.Write("watched/old", "old");
    dir.Write("watched/below/x", "");
    CDirectoryWatch watch;
    ASSERT_TRUE(watch.Open((dir / "watched").c_str()));
    const auto resultOf = [&](const std::function<void()>& change) {
        change();
        const bool bSignalled = WaitAny({&watch}, 0) == EWaitResult::Signalled;
        EXPECT_EQ(WaitAny({&watch}, 0) == EWaitResult::Signalled, bSignalled); // waiting consumes nothing
        const EResult result = watch.Consume();
        EXPECT_EQ(bSignalled, result != EResult::Unchanged);
        return result;
    };
    using std::filesystem::rename;
    EXPECT_EQ(resultOf([] {}), EResult::Unchanged);
    EXPECT_EQ(resultOf([&] { dir.Write("watched/new", ""); }), EResult::Changed);
    EXPECT_EQ(resultOf([&] { dir.Write("watched/old", "new"); }), EResult::Changed);
    EXPECT_EQ(resultOf([&] { unlink((dir / "watched/new").c_str()); }), EResult::Changed);
    EXPECT_EQ(resultOf([&] { rename(dir / "watched/old", dir / "out"); }), EResult::Changed);
    EXPECT_EQ(resultOf([&] { rename(dir / "out", dir / "watched/in"); }), EResult::Changed);
    EXPECT_EQ(resultOf([&] { dir.Read("watched/in"); }), EResult::Unchanged);
    EXPECT_EQ(resultOf([&] { dir.Write("watched/below/x", "y"); }), EResult::Unchanged);
    ASSERT_TRUE(watch.Open((dir / "watched").c_str(), ".eml"));
    dir.Write("watched/.a.eml.tmp", "");
    EXPECT_EQ(watch.Consume(), EResult::Unchanged);
    EXPECT_EQ(resultOf([&] { rename(dir / "watched/.a.eml.tmp", dir / "watched/a.EML"); }), EResult::Changed);
    EXPECT_EQ(resultOf([&] { rename(dir / "watched", dir / "away"); }), EResult::Broken);
    ASSERT_TRUE(watch.Open((dir / "away").c_str()));
    EXPECT_EQ(resultOf([&] { std::filesystem::remove_all(dir / "away"); }), EResult::Broken);
    const CInjectedFault fault(EFault::WatchDirectory, 1, ENOSPC); // the user has too many
    EXPECT_FALSE(watch.Open(dir.Path().c_str()));
    EXPECT_EQ(LastError().iLibError, LIB_NO_LOCKS);
}

/// Enough events to fill the kernel's queue and what reads from it: one name after the other, so that they are not
/// merged.
void OverflowQueue(const std::string& strPath)
{
    int iMost = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> iMost;
    for (int n = 0; n <= iMost / 2 + 1000; ++n) {
        close(open(strPath.c_str(), O_CREAT | O_RDONLY | O_CLOEXEC, 0600));
        unlink(strPath.c_str());
    }
}

TEST(DirectoryWatchTest, AnOverflowIsAChange)
{
    const CTemporaryDirectory directory(CTemporaryDirectory::IN_MEMORY);
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
    void MakeDirectory(const std::string& strName) const { std::filesystem::create_directories(InTree(strName)); }
    void Move(const std::string& strFrom, const std::string& strTo)
    {
        ASSERT_EQ(std::rename((m_directory / strFrom).c_str(), (m_directory / strTo).c_str()), 0);
    }
    /// What is known now, as "+added -removed *modified old>new ".
    std::string Fetched()
    {
        std::vector<STreeRecord> records;
        EXPECT_TRUE(m_watch.Fetch(records, m_loss)) << "records were lost";
        static constexpr const char* MARKS[] = {"", "+", "-", "*", "", ""};
        std::string strSeen;
        for (const auto& [action, strName] : records)
            strSeen += MARKS[static_cast<size_t>(action)] + strName + (action == ETreeAction::RenamedFrom ? ">" : " ");
        return strSeen;
    }
    /// Waits, too, for what the watch finds out only after a while.
    std::string FetchedInTheEnd()
    {
        EXPECT_EQ(WaitAny({&m_watch}, DEADLINE), EWaitResult::Signalled);
        return Fetched();
    }
    CTemporaryDirectory m_directory{CTemporaryDirectory::IN_MEMORY};
    CTreeWatch m_watch;
    SError m_loss{};
};

TEST_F(TreeWatchTest, CanBeWaitedOnWhileItIsOpenedAnew)
{
    const int iDescriptor = m_watch.WaitDescriptor();
    for (const char* pszName : {"x", "y"}) {
        Open();
        EXPECT_EQ(m_watch.WaitDescriptor(), iDescriptor);
        EXPECT_EQ(WaitAny({&m_watch}, 0), EWaitResult::TimedOut); // what the one before it knew is gone
        MakeDirectory(pszName);
        EXPECT_EQ(WaitAny({&m_watch}, DEADLINE), EWaitResult::Signalled);
    }
    EXPECT_FALSE(m_watch.Open((m_directory / "missing").c_str(), 1, nullptr));
    EXPECT_EQ(WaitAny({&m_watch}, 0), EWaitResult::TimedOut);
}

TEST_F(TreeWatchTest, TellsWhatHappensToFilesInOrder)
{
    m_directory.Write("outside", "");
    Open();
    EXPECT_EQ(Fetched(), "");
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
}

TEST_F(TreeWatchTest, FollowsDirectoriesThatAppearMoveAndGo)
{
    m_directory.Write("incoming/deep/file", "");
    Open();
    MakeDirectory("b/c/d");
    Touch(InTree("b/c/d/file"));
    EXPECT_THAT(Fetched(), ContainsRegex("^\\+b .*\\+b/c .*\\+b/c/d .*b/c/d/file "));
    Move("tree/b/c", "tree/a/moved");
    Touch(InTree("a/moved/d/file"));
    EXPECT_EQ(Fetched(), "b/c>a/moved *a/moved/d/file ");
    Move("incoming", "tree/in");
    EXPECT_THAT(Fetched(), HasSubstr("+in/deep/file "));
    Move("tree/in", "left");
    Move("left/deep", "left/below"); // settles the rename, and forgets the directory that it comes from
    EXPECT_EQ(FetchedInTheEnd(), "-in ");
    Touch(m_directory / "left/below/file"); // not ours any more
    std::filesystem::remove_all(InTree("a/moved"));
    EXPECT_EQ(Fetched(), "-a/moved/d/file -a/moved/d -a/moved ");
    ASSERT_EQ(symlink((m_directory / "left").c_str(), InTree("link").c_str()), 0);
    Touch(m_directory / "left/below/file");
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
}

TEST_F(TreeWatchTest, LooksIntoNoDirectoryThatIsLeftOut)
{
    MakeDirectory("a/out/in");
    ASSERT_TRUE(m_watch.Open((m_directory / "tree").c_str(), 1 << 20, nullptr, "out"));
    Touch(InTree("a/out/in/new"));
    MakeDirectory("out/in");
    Touch(InTree("a/new"));
    EXPECT_EQ(Fetched(), "+out *a/new ");
}

TEST_F(TreeWatchTest, SteadyTrafficDoesNotHoldBackAFileThatLeft)
{
    Open();
    Touch(InTree("traffic"));
    Move("tree/a/old", "out");
    std::string strSeen;
    EXPECT_TRUE(Becomes([&] {
        Touch(InTree("traffic"));
        return (strSeen += Fetched()).find("-a/old") != std::string::npos;
    }));
}

TEST_F(TreeWatchTest, ABurstInNewDirectoriesLosesNothing)
{
    constexpr size_t DIRECTORIES = 50, FILES = 100;
    Open();
    std::thread burst([this] {
        for (size_t nDirectory = 0; nDirectory < DIRECTORIES; ++nDirectory) {
            MakeDirectory(std::to_string(nDirectory));
            for (size_t nFile = 0; nFile < FILES; ++nFile)
                Touch(InTree(std::to_string(nDirectory) + "/" + std::to_string(nFile)));
        }
    });
    std::set<std::string> seen;
    EXPECT_TRUE(Becomes([&] {
        std::vector<STreeRecord> records;
        EXPECT_TRUE(m_watch.Fetch(records, m_loss));
        for (const STreeRecord& record : records)
            seen.insert(record.strName);
        return seen.size() == DIRECTORIES * (FILES + 1);
    }));
    burst.join();
}

TEST_F(TreeWatchTest, SaysWhenRecordsWereLostAndGoesOn)
{
    Open(100);
    for (int n = 0; n < 10; ++n)
        MakeDirectory(std::to_string(n));
    std::vector<STreeRecord> records;
    EXPECT_FALSE(m_watch.Fetch(records, m_loss));
    EXPECT_FALSE(records.empty());
    EXPECT_EQ(m_loss.iLibError, 0);
    const CInjectedFault none(EFault::WatchDirectory, 1, ENOSPC);
    MakeDirectory("unwatched");
    EXPECT_FALSE(m_watch.Fetch(records, m_loss));
    EXPECT_EQ(m_loss.dwSysError, SYS_NO_RESOURCES);
    Touch(InTree("9/file")); // its directory is watched though its coming was lost
    EXPECT_EQ(Fetched(), "*9/file ");
    Move("tree", "away");
    EXPECT_EQ(WaitAny({&m_watch}, DEADLINE), EWaitResult::Signalled);
    EXPECT_FALSE(m_watch.Fetch(records, m_loss) || m_watch.HasRoot());
    EXPECT_EQ(m_loss.dwSysError, SYS_FILE_NOT_FOUND);
    EXPECT_EQ(Fetched(), "");
}

/// The filter stops the background thread, so that the kernel's queue fills.
TEST_F(TreeWatchTest, AKernelQueueThatOverflowsIsALossAndTheTreeIsFoundAgain)
{
    std::mutex gate;
    Open(1 << 20, [&gate](std::string_view) { return std::lock_guard(gate), true; });
    std::unique_lock closed(gate);
    Touch(InTree("first"));
    OverflowQueue(InTree("x"));
    MakeDirectory("unseen/below");
    closed.unlock();
    std::vector<STreeRecord> records;
    EXPECT_FALSE(m_watch.Fetch(records, m_loss));
    Touch(InTree("unseen/below/file"));
    EXPECT_EQ(Fetched(), "*unseen/below/file ");
}

} // namespace
