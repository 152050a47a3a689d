#include "Platform/CFileHandle.h"
#include "Platform/Errors.h"
#include "Platform/FaultInjection.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <tuple>
#include <unistd.h>

using namespace Platform;

namespace {

constexpr SOpenMode READ_DENY_WRITE{.share = EShare::DenyWrite};
constexpr SOpenMode WRITE_EXCLUSIVE{
    .access = EAccess::Write, .share = EShare::Exclusive, .bCreate = true, .bTruncate = true};

class FileHandleTest : public testing::Test
{
protected:
    /// 0 when it opens, else the library error.
    static int OpenError(const std::string& strPath, const SOpenMode& mode)
    {
        CFileHandle file;
        return file.Open(strPath.c_str(), mode) ? 0 : LastError().iLibError;
    }
    CTemporaryDirectory m_directory{CTemporaryDirectory::IN_MEMORY};
};

TEST_F(FileHandleTest, ASecondOpenerIsBusyAsTheSharingSays)
{
    constexpr SOpenMode READER{}, WRITER{.access = EAccess::Write};
    constexpr SOpenMode ALONE{.access = EAccess::Write, .share = EShare::Exclusive};
    constexpr SOpenMode PID_FILE{.access = EAccess::ReadWrite, .share = EShare::DenyWrite, .bCreate = true};
    const std::tuple<SOpenMode, SOpenMode, bool> cases[] = {
        {READ_DENY_WRITE, READ_DENY_WRITE, false},
        {READER, WRITER, false},
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
    EXPECT_EQ(OpenError(m_directory / "pipe", {.access = EAccess::Write}), LIB_NO_DEVICE);
    EXPECT_EQ(OpenError("/dev/null", {.share = EShare::DenyWrite, .bOnlyRegular = true}), LIB_NOT_SUPPORTED);
    EXPECT_EQ(OpenError(m_directory.Path(), {}), LIB_IS_DIRECTORY);
}

TEST_F(FileHandleTest, TellsOfDisksThatFailAndSurvivesInterruptions)
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
TEST_F(FileHandleTest, ALockOnANameThatHasBeenGivenAwayIsNotKept)
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

} // namespace
