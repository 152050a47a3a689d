#include "Platform/FileSystem.h"
#include "Platform/CDirectoryListing.h"
#include "Platform/CFileHandle.h"
#include "Platform/CFlushGroup.h"
#include "Platform/CInjectedFault.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>
#include <thread>
#include <tuple>
#include <unistd.h>

using namespace Platform;

namespace {

constexpr SOpenMode READ_DENY_WRITE{.share = EShare::DenyWrite};
constexpr SOpenMode WRITE_EXCLUSIVE{
    .access = EAccess::Write, .share = EShare::Exclusive, .bCreate = true, .bTruncate = true};

class FileSystemTest : public testing::Test
{
protected:
    using Set = std::set<std::string>;
    /// 0 when it opens, else the library error.
    static int OpenError(const std::string& strPath, const SOpenMode& mode)
    {
        CFileHandle file;
        return file.Open(strPath.c_str(), mode) ? 0 : LastError().iLibError;
    }
    bool MoveAcross(const char* pszFrom, const char* pszTo)
    {
        const CInjectedFault fault(EFault::Rename, 1, EXDEV);
        return MoveFileReplacing((m_directory / pszFrom).c_str(), (m_directory / pszTo).c_str());
    }
    Set Names() const { return m_directory.Names(); }
    std::string FromAndTo() const { return m_directory.Read("from") + m_directory.Read("to"); }
    CTemporaryDirectory m_directory{CTemporaryDirectory::IN_MEMORY};
};

TEST_F(FileSystemTest, ASecondOpenerIsBusyAsTheSharingSays)
{
    constexpr SOpenMode READER{}, WRITER{.access = EAccess::Write};
    constexpr SOpenMode ALONE{.access = EAccess::Write, .share = EShare::Exclusive};
    constexpr SOpenMode READ_ALONE{.share = EShare::Exclusive}, DENY_READ{.share = EShare::DenyRead};
    constexpr SOpenMode PID_FILE{.access = EAccess::ReadWrite, .share = EShare::DenyWrite, .bCreate = true};
    const std::tuple<SOpenMode, SOpenMode, bool> cases[] = {
        {READ_DENY_WRITE, READ_DENY_WRITE, false},
        {READER, WRITER, false},
        {READ_DENY_WRITE, WRITER, true},
        {READ_ALONE, READER, true},
        {READER, ALONE, true},
        {DENY_READ, READER, true},
        {DENY_READ, WRITER, false},
        {READ_DENY_WRITE, WRITE_EXCLUSIVE, true}, // and nothing is cut off
        {READ_DENY_WRITE, PID_FILE, true},
        {WRITER, READ_DENY_WRITE, true},
        {WRITER, WRITER, false},
        {ALONE, WRITER, true},
        {PID_FILE, PID_FILE, true},
        {PID_FILE, READER, false}};
    const std::string strPath = m_directory.Write("1.eml", "text");
    for (const auto& [first, second, bBusy] : cases) {
        CFileHandle file;
        ASSERT_TRUE(file.Open(strPath.c_str(), first));
        EXPECT_EQ(OpenError(strPath, second), bBusy ? LIB_ACCESS : 0);
        EXPECT_EQ(m_directory.Read("1.eml"), "text");
    }
    EXPECT_EQ(OpenError(strPath, ALONE), 0);
}

TEST_F(FileSystemTest, AFileThatAnyProgramStillWritesIsBusy)
{
    const std::string strPath = m_directory.Write("1.eml", "half");
    FILE* const pForeign = std::fopen(strPath.c_str(), "a"); // knows nothing of our locks
    for (const EShare share : {EShare::DenyWrite, EShare::Exclusive})
        EXPECT_EQ(OpenError(strPath, {.share = share}), LIB_ACCESS);
    EXPECT_EQ(OpenError(strPath, {}), 0);
    std::fclose(pForeign);
    EXPECT_EQ(OpenError(strPath, READ_DENY_WRITE), 0);
}

TEST_F(FileSystemTest, AFileThatAClusterDoesNotFindUnderANameThatItKnowsIsBusy)
{
    const std::string strPath = m_directory.Write("config", "text");
    for (const auto& [nTimes, nError] : {std::pair(3u, 0), {100u, +LIB_ACCESS}}) {
        const CInjectedFault replaced(EFault::Open, 1, ENOENT, nTimes);
        EXPECT_EQ(OpenError(strPath, {}), nError);
    }
    EXPECT_EQ(OpenError(m_directory / "missing", {}), LIB_NO_ENTRY);
}

TEST_F(FileSystemTest, SymbolicLinksAreNotFollowedForWriting)
{
    const std::string strTarget = m_directory.Write("target", "precious");
    ASSERT_EQ(symlink(strTarget.c_str(), (m_directory / "link").c_str()), 0);
    ASSERT_EQ(symlink((m_directory / "new").c_str(), (m_directory / "dangling").c_str()), 0);
    EXPECT_EQ(OpenError(m_directory / "link", WRITE_EXCLUSIVE), LIB_LOOP);
    EXPECT_EQ(OpenError(m_directory / "dangling", WRITE_EXCLUSIVE), LIB_LOOP);
    EXPECT_EQ(OpenError(m_directory / "link", {.bOnlyRegular = true}), LIB_LOOP);
    EXPECT_EQ(OpenError(m_directory / "link", READ_DENY_WRITE), 0);
    EXPECT_EQ(m_directory.Read("target"), "precious");
    EXPECT_FALSE(std::filesystem::exists(m_directory / "new"));
}

TEST_F(FileSystemTest, WhatIsNoFileIsRefusedWithoutWaiting)
{
    ASSERT_EQ(mkfifo((m_directory / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(OpenError(m_directory / "pipe", {.bOnlyRegular = true}), LIB_NOT_SUPPORTED);
    EXPECT_EQ(OpenError(m_directory / "pipe", {}), 0); // and does not wait for a writer
    EXPECT_EQ(OpenError(m_directory / "pipe", {.access = EAccess::Write}), LIB_NO_DEVICE);
    EXPECT_EQ(OpenError("/dev/null", {.share = EShare::DenyWrite, .bOnlyRegular = true}), LIB_NOT_SUPPORTED);
    EXPECT_EQ(OpenError(m_directory.Path(), {}), LIB_IS_DIRECTORY);
}

TEST_F(FileSystemTest, TellsOfDisksThatFailAndSurvivesInterruptions)
{
    CFileHandle file;
    const SOpenMode create{.access = EAccess::ReadWrite, .bCreateNew = true, .dwPermission = 0600};
    ASSERT_TRUE(file.Open((m_directory / "file").c_str(), create));
    EXPECT_EQ(OpenError(m_directory / "file", create), LIB_EXISTS);
    EXPECT_EQ(std::filesystem::status(m_directory / "file").permissions(), std::filesystem::perms(0600));
    const CInjectedFault full(EFault::Write, 2, ENOSPC), interrupted(EFault::Write, 3, EINTR, 3);
    EXPECT_EQ(file.Write("a", 1), 1);
    EXPECT_EQ(file.Write("b", 1), -1);
    EXPECT_EQ(LastError().iLibError, LIB_NO_SPACE);
    EXPECT_EQ(file.Write("c", 1), 1);
    char c = 0;
    const CInjectedFault broken(EFault::Read, 1, EIO);
    EXPECT_EQ(file.Read(&c, 1), -1);
    EXPECT_EQ(LastError().iLibError, LIB_IO);
    EXPECT_EQ(m_directory.Read("file"), "ac");
}

/// Both threads write through one temporary name, as replacing writers do. Opening it while the other one renames it
/// must not cut off what has just got its final name.
TEST_F(FileSystemTest, ALockOnANameThatHasBeenGivenAwayIsNotKept)
{
    constexpr int ROUNDS = 400;
    const std::string strTemporary = m_directory / "temporary";
    const auto write = [&](const std::string& strOwn) {
        for (int n = 0; n < ROUNDS; ++n) {
            CFileHandle file;
            while (!file.Open(strTemporary.c_str(), WRITE_EXCLUSIVE))
                ASSERT_EQ(LastError().iLibError, LIB_ACCESS);
            ASSERT_GT(file.Write(strOwn.data(), strOwn.size()), 0);
            ASSERT_EQ(std::rename(strTemporary.c_str(), (m_directory / (strOwn + std::to_string(n))).c_str()), 0);
        }
    };
    std::thread other(write, "other");
    write("one");
    other.join();
    for (int n = 0; n < ROUNDS; ++n)
        for (const std::string strOwn : {"one", "other"})
            EXPECT_EQ(m_directory.Read(strOwn + std::to_string(n)), strOwn);
}

TEST_F(FileSystemTest, MovesReplaceAndKeepWhatTheFileWas)
{
    for (const bool bAcross : {false, true}) {
        const std::string strFrom = m_directory.Write("from", std::string(600'000, 'x'));
        m_directory.Write("to", "old");
        ASSERT_EQ(chmod(strFrom.c_str(), 0640), 0);
        ASSERT_TRUE(bAcross ? MoveAcross("from", "to")
                            : MoveFileReplacing(strFrom.c_str(), (m_directory / "to").c_str()));
        EXPECT_EQ(m_directory.Read("to"), std::string(600'000, 'x'));
        EXPECT_EQ(Names(), Set{"to"});
        EXPECT_EQ(std::filesystem::status(m_directory / "to").permissions(), std::filesystem::perms(0640));
    }
}

TEST_F(FileSystemTest, AMoveAcrossThatFailsKeepsTheSourceAndTheOldTarget)
{
    using enum EFault;
    m_directory.Write("from", "new");
    m_directory.Write("to", "old");
    std::string strExpected = "newold";
    const std::tuple<EFault, unsigned, int> faults[] = {
        {Read, 1, EIO}, {Write, 1, ENOSPC}, {Close, 1, EIO}, {Flush, 1, EIO},   {Open, 2, EMFILE},
        {Stat, 1, EIO}, {Rename, 2, EIO},   {Flush, 2, EIO}, {Open, 3, EMFILE}, {Remove, 1, EACCES}};
    for (const auto& [fault, nCall, iErrno] : faults) {
        if (fault == Flush && nCall == 2)
            strExpected = "newnew"; // from here on the new name may not last yet
        const CInjectedFault failing(fault, nCall, iErrno);
        EXPECT_FALSE(MoveAcross("from", "to"));
        EXPECT_EQ(LastError().iLibError, ErrorFromErrno(iErrno).iLibError);
        EXPECT_EQ(FromAndTo(), strExpected);
        EXPECT_EQ(Names(), (Set{"from", "to"}));
    }
    EXPECT_TRUE(MoveAcross("from", "to"));
    EXPECT_EQ(Names(), Set{"to"});
}

TEST_F(FileSystemTest, AMoveAcrossLeavesABusyFileAndMovesLinksAsLinks)
{
    CFileHandle writer;
    ASSERT_TRUE(writer.Open((m_directory / "from").c_str(), {.access = EAccess::Write, .bCreate = true}));
    EXPECT_FALSE(MoveAcross("from", "to"));
    EXPECT_EQ(LastError().iLibError, LIB_ACCESS);
    EXPECT_EQ(Names(), Set{"from"});

    ASSERT_EQ(symlink("from", (m_directory / "link").c_str()), 0);
    m_directory.Write(".moved.tmp", "left by a crash");
    EXPECT_TRUE(MoveAcross("link", "moved"));
    EXPECT_EQ(std::filesystem::read_symlink(m_directory / "moved"), "from");
    ASSERT_EQ(mkfifo((m_directory / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(MoveAcross("pipe", "to"));
    EXPECT_EQ(LastError().iLibError, LIB_CROSS_DEVICE);
    EXPECT_EQ(Names(), (Set{"from", "moved", "pipe"}));
}

/// Also where the file system knows no such rename.
TEST_F(FileSystemTest, RenameNoReplaceRefusesATakenName)
{
    const std::string strTo = m_directory / "to";
    for (const unsigned nTimes : {0u, 100u}) {
        const CInjectedFault unknown(EFault::Rename, 1, EINVAL, nTimes);
        const std::string strFrom = m_directory.Write("from", "new");
        m_directory.Write("to", "old");
        EXPECT_FALSE(RenameNoReplace(strFrom.c_str(), strTo.c_str()));
        EXPECT_EQ(LastError().iLibError, LIB_EXISTS);
        EXPECT_EQ(FromAndTo(), "newold");
        ASSERT_TRUE(RemoveFile(strTo.c_str()));
        if (nTimes > 0) { // linked, but still under its old name: not renamed
            const CInjectedFault fault(EFault::Remove, 1, EIO);
            EXPECT_FALSE(RenameNoReplace(strFrom.c_str(), strTo.c_str()));
            EXPECT_EQ(LastError().iLibError, LIB_IO);
            EXPECT_EQ(Names(), Set{"from"});
        }
        EXPECT_TRUE(RenameNoReplace(strFrom.c_str(), strTo.c_str()));
        EXPECT_EQ(Names(), Set{"to"});
    }
}

TEST_F(FileSystemTest, ListsSortedBytewiseAndNothingOnFailure)
{
    for (const char* pszName : {"b.eml", "B.eml", "a", "\xc3\xa4", "10", "9"})
        m_directory.Write(pszName, "");
    ASSERT_TRUE(CreateOneDirectory((m_directory / "c").c_str()));
    ASSERT_EQ(symlink("c", (m_directory / "d").c_str()), 0);
    ASSERT_EQ(mkfifo((m_directory / "e").c_str(), 0600), 0);
    CDirectoryListing listing;
    ASSERT_TRUE(listing.Read(m_directory.Path().c_str()));
    std::string strSeen;
    for (size_t n = 0; n < listing.Count(); ++n) {
        const auto entry = listing.At(n);
        strSeen += std::string(entry.pszName) + (entry.bDirectory ? "/ " : entry.bRegular ? " " : "| ");
    }
    EXPECT_EQ(strSeen, "10 9 B.eml a b.eml c/ d e| \xc3\xa4 ");
    for (const auto& [fault, nCall] : {std::pair(EFault::ListDirectory, 1u), {EFault::ReadDirectory, 4u}}) {
        const CInjectedFault failing(fault, nCall, EIO);
        EXPECT_FALSE(listing.Read(m_directory.Path().c_str()));
        EXPECT_EQ(LastError().iLibError, LIB_IO);
        EXPECT_EQ(listing.Count(), 0u);
    }
    EXPECT_EQ(KindOf((m_directory / "a/b").c_str()), EPathKind::Missing);
    EXPECT_EQ(KindOf((m_directory / std::string(300, 'x')).c_str()), EPathKind::Failed);
}

TEST(NativePathTest, DropsTheDriveOfAWindowsFormAlone)
{
    EXPECT_EQ(NativePath("c:\\mail\\queue") + NativePath("\\mail\\x") + NativePath("/a\\b"), "/mail/queue/mail/x/a\\b");
}

TEST_F(FileSystemTest, AFlushGroupFlushesEachMarkedFileSystemOnce)
{
    const auto openDescriptors = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto nBefore = openDescriptors();
    const std::string paths[] = {m_directory / "a", m_directory / "b"};
    CFlushGroup group;
    for (const std::string& strPath : paths) {
        ASSERT_TRUE(CreateOneDirectory(strPath.c_str()));
        ASSERT_TRUE(group.Add(strPath.c_str()));
    }
    EXPECT_EQ(openDescriptors(), nBefore + 1);
    const CInjectedFault failing(EFault::FlushVolume, 2, EIO, 2), interrupted(EFault::FlushVolume, 4, EINTR);
    const CInjectedFault shortage(EFault::Open, 1, EMFILE);
    EXPECT_TRUE(group.Flush()); // nothing was marked
    for (const std::string& strPath : paths)
        group.MarkWritten(strPath.c_str());
    EXPECT_TRUE(group.Flush());
    group.MarkWritten(paths[1].c_str());
    EXPECT_FALSE(group.Flush());
    EXPECT_EQ(LastError().iLibError, LIB_IO);
    EXPECT_TRUE(group.Flush()); // what was not durable is not asked for again
    group.MarkWritten(paths[1].c_str(), false);
    SError error;
    EXPECT_TRUE(group.Flush(&error));
    EXPECT_EQ(error.iLibError, LIB_IO);
    group.FlushLater(paths[1].c_str());
    group.Empty();
    EXPECT_EQ(openDescriptors(), nBefore);
    EXPECT_FALSE(group.Add(paths[0].c_str()));
    EXPECT_TRUE(group.Flush());
}

TEST_F(FileSystemTest, AFlushGroupTellsOfEveryFileSystemAndOfMarksItCouldNotKeep)
{
    CFlushGroup group;
    EXPECT_FALSE(group.Add((m_directory / "missing").c_str()));
    group.MarkWritten((m_directory / "missing").c_str());
    EXPECT_FALSE(group.Flush());
    EXPECT_EQ(LastError().iLibError, LIB_NO_ENTRY);
    EXPECT_TRUE(group.Flush());

    ASSERT_TRUE(group.Add("/proc"));
    group.MarkWritten("/proc");
    group.MarkWritten(m_directory.Path().c_str()); // added now
    const CInjectedFault first(EFault::FlushVolume, 1, EIO);
    EXPECT_FALSE(group.Flush()); // though the second one succeeds
}

} // namespace
