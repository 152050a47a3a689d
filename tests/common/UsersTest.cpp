#include "CAccountWorld.h"
#include "Platform/CEventHandle.h"
#include "Platform/CInjectedFault.h"

#include <cerrno>
#include <gtest/gtest.h>

using Bex::CSimpleString;

namespace {

TEST(UsersTest, OneUserPerRealDirectory)
{
    const CAccountWorld world({"Ann", "c:bob", ".hidden"}, "");
    const CTemporaryDirectory& directory = world.Directory();
    directory.Write("spool/file", "");
    std::filesystem::create_directory_symlink(directory / "spool/c:bob", directory / "spool/link");
    directory.Write("spool/c:bob/config", "Quota: 5\nMaxSize: 7\n");
    Config().Set("Quota", "3");
    ASSERT_TRUE(Users().BuildUserList());
    EXPECT_EQ(Users().UserCount(), 2u);
    for (const char* pszNobody : {"Ann", ".hidden", "file", "link", "config", ""})
        EXPECT_FALSE(Users().IsUser(pszNobody)) << pszNobody;
    const Bex::CScopedLock lock(Users().LockObject());
    ASSERT_TRUE(Users().IsUser("ann") && Users().IsUser("c:bob"));
    EXPECT_EQ(Users().Find("ann")->value->iQuota, 3);
    EXPECT_EQ(Users().Find("ann")->value->iMaxSize, 0);
    EXPECT_EQ(Users().Find("c:bob")->value->iQuota, 5);
    EXPECT_EQ(Users().Find("c:bob")->value->iMaxSize, 7);
}

TEST(UsersTest, MailboxStaysBelowTheSpoolRoot)
{
    const CAccountWorld world({"Ann"}, "");
    EXPECT_EQ(Users().UserDirectory("ann"), CSimpleString(world.Directory() / "spool/Ann"));
    EXPECT_EQ(Users().UserDirectory("new"), CSimpleString(world.Directory() / "spool/new"));
    EXPECT_EQ(Users().UserDirectory("c:ann"), CSimpleString(world.Directory() / "spool/c:ann"));
    using namespace std::string_view_literals;
    for (const std::string_view name : {""sv, "."sv, ".."sv, "../ann"sv, "/etc"sv, "ann/x"sv, "ann\0/x"sv})
        EXPECT_EQ(Users().UserDirectory(name), "") << name;
}

TEST(UsersTest, BrokenAccountCostsOnlyItself)
{
    const CAccountWorld world({"ann", "bob"}, "");
    world.Directory().Write("spool/ann/config", "Quota: 1\n");
    const Platform::CInjectedFault fault(Platform::EFault::Read, 1, EIO);
    EXPECT_TRUE(Users().BuildUserList());
    EXPECT_FALSE(Users().IsUser("ann"));
    EXPECT_TRUE(Users().IsUser("bob"));
}

TEST(UsersTest, AreKeptWhileTheirTreeIsAwayAndWatchedAgainWhenItIsBack)
{
    const CAccountWorld world({"ann"}, "");
    const std::filesystem::path spool = world.Directory() / "spool";
    for (const bool bEmptyInBetween : {false, true}) { // as an unmounted volume leaves it
        std::filesystem::rename(spool, world.Directory() / "away");
        if (bEmptyInBetween)
            std::filesystem::create_directory(spool);
        while (Users().HasTreeChanged() || Users().ChangeMonitor().IsCreated() != bEmptyInBetween)
            EXPECT_FALSE(Users().BuildUserList());
        EXPECT_TRUE(Users().IsUser("ann"));
        std::filesystem::remove(spool);
        std::filesystem::rename(world.Directory() / "away", spool);
        EXPECT_TRUE(Users().HasTreeChanged() && Users().BuildUserList());
        world.Directory().Write("spool/ann/password", "x");
        EXPECT_TRUE(Users().HasTreeChanged());
    }
}

TEST(UsersTest, OnlyPasswordFilesBelowTheSpoolDirectoryCount)
{
    for (const char* pszCounts : {"ann/password", "ann/PassWord", "ann/deep/password"})
        EXPECT_TRUE(CUsers::CUserChangeMonitor::Counts(pszCounts)) << pszCounts;
    for (const char* pszOther : {"password", "ann", "ann/password.tmp", "ann/1.eml", "password/x", ""})
        EXPECT_FALSE(CUsers::CUserChangeMonitor::Counts(pszOther)) << pszOther;

    const CAccountWorld world({"ann"}, "");
    EXPECT_FALSE(Users().ChangeMonitor().HasChanged());
    world.Directory().Write("spool/ann/1.eml", "x");
    world.Directory().Write("spool/ann/password", "x");
    EXPECT_EQ(Platform::WaitAny({&Users().ChangeMonitor().Waitable()}, 10000), Platform::EWaitResult::Signalled);
    EXPECT_TRUE(Users().ChangeMonitor().HasChanged());
}

} // namespace
