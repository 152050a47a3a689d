#include "Platform/CFileHandle.h"
#include "Platform/Errors.h"
#include "Platform/FaultInjection.h"
#include "support/CTemporaryDirectory.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Platform;

namespace {

constexpr SOpenMode READ_DENY_WRITE{.share = EShare::DenyWrite};
constexpr SOpenMode WRITE_EXCLUSIVE{
    .access = EAccess::Write, .share = EShare::Exclusive, .bCreate = true, .bTruncate = true};

class FileHandleTest : public testing::Test
{
protected:
    void TearDown() override { ClearFaults(); }
    /// 0 when it opens, else the library error.
    static int OpenError(const std::string& strPath, const SOpenMode& mode)
    {
        CFileHandle file;
        return file.Open(strPath.c_str(), mode) ? 0 : LastError().iLibError;
    }
    CTemporaryDirectory m_directory;
};

struct ShareCase
{
    SOpenMode first, second;
    bool bBusy;
};

class ShareTest : public testing::TestWithParam<ShareCase>
{};

TEST_P(ShareTest, ASecondOpenerIsRefusedAsBusyUntilTheFirstCloses)
{
    const CTemporaryDirectory directory;
    const std::string strPath = directory.Write("1.eml", "text");
    CFileHandle first, second;
    ASSERT_TRUE(first.Open(strPath.c_str(), GetParam().first));
    EXPECT_EQ(second.Open(strPath.c_str(), GetParam().second), !GetParam().bBusy);
    if (GetParam().bBusy) {
        EXPECT_EQ(LastError().iLibError, LIB_ACCESS);
        EXPECT_EQ(LastError().dwSysError, SYS_SHARING_VIOLATION);
    }
    EXPECT_EQ(directory.Read("1.eml"), "text");
    EXPECT_TRUE(first.Close());
    EXPECT_TRUE(second.IsOpen() || second.Open(strPath.c_str(), GetParam().second));
}

constexpr SOpenMode READER{};
constexpr SOpenMode WRITER{.access = EAccess::Write};
constexpr SOpenMode PID_FILE{.access = EAccess::ReadWrite, .share = EShare::DenyWrite, .bCreate = true};
INSTANTIATE_TEST_SUITE_P(
    Modes, ShareTest,
    testing::Values(ShareCase{READ_DENY_WRITE, READ_DENY_WRITE, false},
                    ShareCase{READ_DENY_WRITE, WRITE_EXCLUSIVE, true}, // and nothing is cut off
                    ShareCase{READ_DENY_WRITE, PID_FILE, true}, ShareCase{WRITER, READ_DENY_WRITE, true},
                    ShareCase{WRITER, WRITER, false},
                    ShareCase{{.access = EAccess::Write, .share = EShare::Exclusive}, WRITER, true},
                    ShareCase{PID_FILE, READ_DENY_WRITE, true}, ShareCase{PID_FILE, PID_FILE, true},
                    ShareCase{PID_FILE, READER, false}, ShareCase{READER, WRITER, false}));

TEST_F(FileHandleTest, AFileThatAnyProgramStillWritesIsBusy)
{
    const std::string strPath = m_directory.Write("1.eml", "half");
    FILE* const pForeign = std::fopen(strPath.c_str(), "a"); // knows nothing of our locks
    ASSERT_NE(pForeign, nullptr);
    for (const EShare share : {EShare::DenyWrite, EShare::Exclusive})
        EXPECT_EQ(OpenError(strPath, {.share = share}), LIB_ACCESS);
    EXPECT_EQ(OpenError(strPath, {}), 0);
    std::fclose(pForeign);
    EXPECT_EQ(OpenError(strPath, READ_DENY_WRITE), 0);
}

TEST_F(FileHandleTest, SymbolicLinksAreNotFollowedForWriting)
{
    const std::string strTarget = m_directory.Write("target", "precious");
    ASSERT_EQ(symlink(strTarget.c_str(), (m_directory / "link").c_str()), 0);
    ASSERT_EQ(symlink((m_directory / "new").c_str(), (m_directory / "dangling").c_str()), 0);
    EXPECT_EQ(OpenError(m_directory / "link", WRITE_EXCLUSIVE), LIB_LOOP);
    EXPECT_EQ(OpenError(m_directory / "link", WRITER), LIB_LOOP);
    EXPECT_EQ(OpenError(m_directory / "dangling", WRITE_EXCLUSIVE), LIB_LOOP);
    EXPECT_EQ(OpenError(m_directory / "link", {.bOnlyRegular = true}), LIB_LOOP);
    EXPECT_EQ(OpenError(m_directory / "link", READ_DENY_WRITE), 0);
    EXPECT_EQ(m_directory.Read("target"), "precious");
    EXPECT_FALSE(std::filesystem::exists(m_directory / "new"));
}

TEST_F(FileHandleTest, WhatIsNoFileIsRefusedWithoutWaiting)
{
    ASSERT_EQ(mkfifo((m_directory / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(OpenError(m_directory / "pipe", {.bOnlyRegular = true}), LIB_NOT_SUPPORTED);
    EXPECT_EQ(OpenError(m_directory / "pipe", {}), 0); // and does not wait for a writer
    EXPECT_EQ(OpenError(m_directory / "pipe", WRITER), LIB_NO_DEVICE);
    EXPECT_EQ(OpenError("/dev/null", {.share = EShare::DenyWrite, .bOnlyRegular = true}), LIB_NOT_SUPPORTED);
    EXPECT_EQ(OpenError(m_directory.Path(), {}), LIB_IS_DIRECTORY);
    EXPECT_EQ(OpenError(m_directory / "missing", {}), LIB_NO_ENTRY);
    EXPECT_EQ(OpenError(m_directory / "no/where", WRITE_EXCLUSIVE), LIB_NO_ENTRY);
}

TEST_F(FileHandleTest, CreatesWithThePermissionAndReadsBackWhatWasWritten)
{
    const std::string strPath = m_directory / "new";
    const SOpenMode create{.access = EAccess::ReadWrite, .bCreateNew = true, .dwPermission = 0600};
    CFileHandle file;
    ASSERT_TRUE(file.Open(strPath.c_str(), create));
    EXPECT_EQ(OpenError(strPath, create), LIB_EXISTS);
    struct stat status
    {};
    ASSERT_EQ(stat(strPath.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u);
    EXPECT_EQ(file.Write("0123456789", 10), 10);
    EXPECT_EQ(file.Size(), 10);
    EXPECT_EQ(file.Seek(-4, ESeekFrom::End), 6);
    std::array<char, 10> buffer{};
    EXPECT_EQ(file.Read(buffer.data(), buffer.size()), 4);
    EXPECT_EQ(file.Read(buffer.data(), buffer.size()), 0);
    EXPECT_EQ(std::string(buffer.data()), "6789");
    EXPECT_EQ(file.Seek(-1, ESeekFrom::Begin), -1);
    EXPECT_EQ(LastError().iLibError, LIB_INVALID);
    CFileHandle other = std::move(file);
    EXPECT_EQ(other.Seek(0, ESeekFrom::Current), 10);
    EXPECT_TRUE(other.Close());
    EXPECT_FALSE(other.Close());
    EXPECT_EQ(LastError().iLibError, LIB_BAD_HANDLE);
}

TEST_F(FileHandleTest, TellsOfDisksThatFailAndSurvivesInterruptions)
{
    CFileHandle file;
    InjectFault(EFault::Open, 1, EMFILE);
    EXPECT_EQ(OpenError(m_directory / "file", WRITE_EXCLUSIVE), LIB_TOO_MANY_OPEN);
    ASSERT_TRUE(file.Open((m_directory / "file").c_str(), {.access = EAccess::ReadWrite, .bCreate = true}));
    InjectFault(EFault::Write, 2, ENOSPC);
    EXPECT_EQ(file.Write("a", 1), 1);
    EXPECT_EQ(file.Write("b", 1), -1);
    EXPECT_EQ(LastError().iLibError, LIB_NO_SPACE);
    InjectFault(EFault::Write, 1, EINTR, 3);
    EXPECT_EQ(file.Write("c", 1), 1);
    char c = 0;
    InjectFault(EFault::Read, 1, EIO);
    EXPECT_EQ(file.Read(&c, 1), -1);
    EXPECT_EQ(LastError().iLibError, LIB_IO);
    EXPECT_EQ(m_directory.Read("file"), "ac");
}

/// Both threads write through one temporary name, as replacing writers do. Opening it while the other one renames it
/// must not cut off what has just got its final name.
TEST_F(FileHandleTest, ALockOnANameThatHasBeenGivenAwayIsNotKept)
{
    constexpr int ROUNDS = 400;
    const std::string strTemporary = m_directory / "temporary";
    std::atomic<int> iDamaged = 0;
    const auto write = [&](const std::string& strOwn) {
        for (int n = 0; n < ROUNDS; ++n) {
            CFileHandle file;
            while (!file.Open(strTemporary.c_str(), WRITE_EXCLUSIVE))
                ASSERT_EQ(LastError().iLibError, LIB_ACCESS);
            const std::string strFinal = strOwn + std::to_string(n);
            ASSERT_EQ(file.Write(strOwn.data(), strOwn.size()), static_cast<int64_t>(strOwn.size()));
            ASSERT_EQ(std::rename(strTemporary.c_str(), (m_directory / strFinal).c_str()), 0);
            ASSERT_TRUE(file.Close());
        }
    };
    std::thread other(write, "other");
    write("one");
    other.join();
    for (int n = 0; n < ROUNDS; ++n)
        for (const std::string strOwn : {"one", "other"})
            iDamaged += m_directory.Read(strOwn + std::to_string(n)) != strOwn;
    EXPECT_EQ(iDamaged, 0);
}

} // namespace
