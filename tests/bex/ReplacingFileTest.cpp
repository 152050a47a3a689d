#include "Bex/CFileException.h"
#include "Bex/CReplacingFile.h"
#include "Platform/CCallWatcher.h"
#include "Platform/CChildProcess.h"
#include "Platform/CTemporaryFile.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Bex;
namespace fs = std::filesystem;

namespace {

/// Looks, the moment a file has got its name, whether a lock on it would be in the way of who opens it at once.
struct SLockLooker : Platform::CCallWatcher
{
    void OnCall(const Platform::SCall& call) override
    {
        struct flock lock
        {};
        lock.l_type = F_WRLCK;
        lock.l_start = off_t{1} << 62; // where openers tell each other what they do
        const int iFile = call.kind == Platform::EFault::Rename ? open(call.pszTo, O_RDWR | O_CLOEXEC) : -1;
        bFree |= iFile >= 0 && fcntl(iFile, F_OFD_GETLK, &lock) == 0 && lock.l_type == F_UNLCK;
        close(iFile);
    }
    bool bFree = false;
};

class ReplacingFileTest : public testing::Test
{
protected:
    ReplacingFileTest() { m_directory.Write("target", "old"); }
    void Replace() const
    {
        CReplacingFile file(m_strTarget);
        file.WriteString("new");
        file.MakeDurable();
        file.Commit();
    }
    using Set = std::set<std::string>;
    const CTemporaryDirectory m_directory;
    const CSimpleString m_strTarget{m_directory / "target"};
    const std::string m_strTemporary{m_directory / ".target.tmp"};
};

TEST_F(ReplacingFileTest, WritesToNothingThatHasTheTemporaryName)
{
    const struct
    {
        const char* pszKind;
        std::function<void(const std::string& strPath, const std::string& strVictim)> plant;
        bool bRemoved;
    } CASES[] = {
        {"leftover", [&](const auto&, const auto&) { m_directory.Write(".target.tmp", "longer than new"); }, true},
        {"hard link", [](const auto& path, const auto& victim) { fs::create_hard_link(victim, path); }, true},
        {"link", [](const auto& path, const auto& victim) { fs::create_symlink(victim, path); }, false},
        {"dangling link", [](const auto& path, const auto& victim) { fs::create_symlink(victim + "2", path); }, false},
        {"pipe", [](const auto& path, const auto&) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }, false},
        {"directory", [](const auto& path, const auto&) { fs::create_directory(path); }, false}};
    for (const auto& planted : CASES) {
        m_directory.Write("target", "old");
        planted.plant(m_strTemporary, m_directory.Write("victim", "keep"));
        Replace();
        EXPECT_EQ(m_directory.Read("target"), "new") << planted.pszKind;
        EXPECT_EQ(m_directory.Read("victim"), "keep") << planted.pszKind;
        EXPECT_EQ(m_directory.Names(),
                  planted.bRemoved ? (Set{"target", "victim"}) : (Set{".target.tmp", "target", "victim"}))
            << planted.pszKind;
        fs::remove(m_strTemporary);
    }
}

TEST_F(ReplacingFileTest, StepsAroundOneThatIsInUseAndSparesItWhenItIsClosed)
{
    CReplacingFile first(m_strTarget);
    first.WriteString("first");
    first.Close();
    EXPECT_FALSE(CFile::RemoveUnlessInUse(CSimpleString(m_strTemporary)));
    Replace();
    EXPECT_EQ(m_directory.Names(), (Set{".target.tmp", "target"}));
    first.Commit();
    EXPECT_EQ(m_directory.Read("target"), "first");
    CFile reader; // nobody takes it for one that is still being written
    reader.Open(m_strTarget, CFile::modeRead | CFile::typeBinary | CFile::shareDenyWrite);
}

TEST_F(ReplacingFileTest, KeepsModeAndOwnerOfWhatItReplaces)
{
    constexpr uid_t OTHER = 12345;
    const bool bMayGive = chown(m_strTarget.Text(), OTHER, OTHER) == 0;
    ASSERT_EQ(chmod(m_strTarget.Text(), 0647), 0);
    Replace();
    struct stat status = {};
    ASSERT_EQ(stat(m_strTarget.Text(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0647u);
    EXPECT_EQ(status.st_uid, bMayGive ? OTHER : getuid());
    EXPECT_EQ(status.st_gid, bMayGive ? OTHER : getgid());
}

TEST_F(ReplacingFileTest, LeavesNothingBehindWhenItFails)
{
    using enum Platform::EFault;
    const std::pair<Platform::EFault, unsigned> cases[] = {{Open, 1},  {Open, 2},  {Lock, 1},  {Write, 1},
                                                           {Close, 1}, {Flush, 1}, {Rename, 1}};
    for (const auto& [fault, nCall] : cases) {
        const Platform::CInjectedFault failing(fault, nCall, EIO);
        EXPECT_THROW(Replace(), CFileException) << static_cast<int>(fault) << " " << nCall;
        EXPECT_EQ(m_directory.Read("target"), "old");
        EXPECT_EQ(m_directory.Names(), Set{"target"}) << static_cast<int>(fault) << " " << nCall;
    }
    CReplacingFile file(m_strTarget);
    file.WriteString("half");
    const Platform::CInjectedFault failing(Platform::EFault::Close, 1, ENOSPC);
    EXPECT_THROW(file.Close(), CFileException);
    EXPECT_THROW(file.Commit(), CFileException) << "what could not be closed may not be whole";
    EXPECT_EQ(m_directory.Read("target"), "old");
}

TEST_F(ReplacingFileTest, TakesANameOnlyWhereNothingHasIt)
{
    SLockLooker looker;
    const std::string strLong = std::string(251, 'n') + ".eml";
    for (const std::string& strName : {std::string("target"), strLong}) {
        CReplacingFile file(CSimpleString(m_directory / strName));
        file.WriteString("new");
        EXPECT_EQ(file.CommitNew(), strName == strLong);
        EXPECT_FALSE(strName != strLong && CFile::RemoveUnlessInUse(CSimpleString(m_strTemporary)))
            << "before the next";
    }
    EXPECT_EQ(m_directory.Read("target") + m_directory.Read(strLong), "oldnew");
    EXPECT_EQ(m_directory.Names(), (Set{"target", strLong}));
    EXPECT_TRUE(looker.bFree);
}

TEST_F(ReplacingFileTest, LetsSeveralWriteOneTargetAtATime)
{
    const auto write = [&] {
        for (unsigned n = 0; n < 3000; ++n) {
            Platform::CTemporaryFile temporary;
            Platform::CFileHandle file;
            if (!temporary.Create(m_strTarget.Text(), file) || !file.Close() || !temporary.Replace())
                ADD_FAILURE() << "run " << n << ": error " << Platform::LastError().iLibError << " at "
                              << temporary.Path();
        }
    };
    {
        const std::jthread threads[] = {std::jthread(write), std::jthread(write), std::jthread(write)};
    }
    EXPECT_EQ(m_directory.Names(), Set{"target"});
}

TEST_F(ReplacingFileTest, HoldsUpNobodyElseWhileItsVolumeHangs)
{
    std::future<bool> others;
    CReplacingFile hangs(m_strTarget);
    others = std::async(std::launch::async, [&] {
        CReplacingFile(CSimpleString(m_directory / "other")).Commit();
        return Platform::CChildProcess::Start("", "true", nullptr) != nullptr;
    });
    EXPECT_EQ(others.wait_for(std::chrono::seconds(60)), std::future_status::ready);
}

} // namespace
