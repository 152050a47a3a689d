#include "Bex/CFileException.h"
#include "Common/Globals.h"
#include "Common/IsValidAddress.h"
#include "Platform/CInjectedFault.h"
#include "Platform/CNamedMutex.h"
#include "Platform/Clock.h"
#include "Platform/FileIdentity.h"
#include "Tobix/CDeletionList.h"
#include "Tobix/CFileNames.h"
#include "Tobix/CInterceptor.h"
#include "Tobix/CSharedNumbers.h"
#include "Tobix/TableReload.h"
#include "Tobix/ThreadControl.h"
#include "support/Becomes.h"
#include "support/CLogRecorder.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <utility>

TEST(IsValidAddressTest, TakesDotAtomsAndAddressLiteralsOnly)
{
    for (const char* pszAddress : {"ann", "a.b", "ann@example.org", "a!#$%&'*+-/=?^_{|}~`@x", "ann@[192.0.2.1]", "1@2"})
        EXPECT_TRUE(IsValidAddress(pszAddress)) << pszAddress;
    for (const char* pszAddress :
         {"", ".ann", "ann.", "a..b", "ann@", "@example.org", "ann@example.org.", "a@b@c", "a b", "ann@a..b",
          "\"ann\"@b", "a,b", "a(b)", "a[b]@c", "ann@.b", "\xfc@b", "a:b@c"})
        EXPECT_FALSE(IsValidAddress(pszAddress)) << pszAddress;
}

TEST(FileNamesTest, CountOnThroughBothFormats)
{
    CFileNames names;
    const std::string strFirst = names.FilterCopy().Text();
    const std::string strSecond = names.RecipientCopy(Bex::CTime(1700000000), 42).Text();
    EXPECT_EQ(strFirst.size(), 14u + 4 + 4 + 4);
    EXPECT_EQ(strFirst.substr(18), "0000.eml");
    EXPECT_EQ(strSecond.substr(0, 6), "202311");
    EXPECT_EQ(strSecond.substr(14), "000420001.eml");
    EXPECT_EQ(std::string(names.RecipientCopy(Bex::CTime(0), 1234567).Text()).substr(14), "12345670002.eml");
}

TEST(SharedNumbersTest, GoOnForAllHostsWhateverTheyKnowAndSpareTheAccountFile)
{
    const CTemporaryDirectory directory;
    const Bex::CSimpleString strDirectory(directory.Path().c_str());
    EXPECT_EQ(Platform::CNamedMutex("ann/config", strDirectory.View()).Lock(0), Platform::ELockResult::Acquired);
    const Bex::CSimpleString strFile(directory.Write("config", "NextUID: 7\n"));
    CSharedNumbers hosts[] = {{strDirectory, "one"}, {strDirectory, "two"}};
    Bex::CConfigFile fresh, stale;
    ASSERT_TRUE(stale.Load(strFile));
    const auto TakeFresh = [&] { return fresh.Load(strFile) ? hosts[0].Take("ann", fresh) : 0; };
    ASSERT_EQ(TakeFresh(), 7u);
    {
        const Platform::CInjectedFault unseen(Platform::EFault::ListDirectory, 1, ENOENT);
        ASSERT_EQ(hosts[1].Take("ann", stale), 8u);
    }
    for (uint32_t dwNumber = 9; dwNumber < 1500; ++dwNumber) {
        ASSERT_EQ(dwNumber % 3 == 0 ? hosts[1].Take("ann", stale) : TakeFresh(), dwNumber);
        if (dwNumber == 900)
            directory.Write("config", directory.Read("config") + "Maildir: 1\n");
    }
    EXPECT_TRUE(directory.Read("config").ends_with("Maildir: 1\n") && fresh.Load(strFile));
    const uint32_t dwAhead = static_cast<uint32_t>(fresh.GetInt("NextUID", 0));
    EXPECT_GE(dwAhead, 1500u);
    std::filesystem::remove_all(hosts[0].DirectoryOf("ann").Text());
    EXPECT_EQ(TakeFresh(), dwAhead);
    directory.Write("config", "NextUID: 9000\n"); // by an administrator, or by deliveries without the directory
    EXPECT_EQ(TakeFresh(), 9000u);
    std::filesystem::remove_all(Platform::CNamedMutex::PlaceBelow(strDirectory.View()));
    const std::string strConfig = directory.Read("config");
    for (int n = 0; n < 2; ++n) // and does not drive it on
        EXPECT_THROW(TakeFresh(), Bex::CFileException);
    EXPECT_EQ(directory.Read("config"), strConfig);
}

TEST(SafeFileNamePartTest, NeverLeavesTheDirectoryAndFitsIntoAName)
{
    EXPECT_EQ(SafeFileNamePart("id.1@far.example"), "id.1@far.example");
    EXPECT_EQ(SafeFileNamePart("../../etc/x\n\x7f"), "_._.._etc_x__");
    const Bex::CSimpleString strLong = SafeFileNamePart(std::string(5000, 'a'));
    EXPECT_LE(strLong.Length(), 200u);
    EXPECT_FALSE(strLong == SafeFileNamePart(std::string(5001, 'a')));
}

TEST(TableReloadTest, TakesUpEachTableThatWasWrittenLaterAndSurvivesThoseThatCannotBeRead)
{
    const CTemporaryDirectory directory;
    const CLogRecorder log;
    for (const char* pszName : {"filters", "backup", "hosts", "masks", "listed"})
        directory.Write(pszName, "old: 1\n");
    Filters().Load((directory / "filters").c_str());
    BackupDomains().Load((directory / "backup").c_str());
    SmartHosts().Load((directory / "hosts").c_str());
    Masquerading().Load((directory / "masks").c_str());
    CInterceptor interceptor((directory / "listed").c_str(), directory.Path().c_str());
    const std::map<std::string, std::function<bool(const char*)>> holds{
        {"filters", [](const char* pszKey) { return Filters().ContainsExact(pszKey); }},
        {"backup", [](const char* pszKey) { return BackupDomains().ContainsExact(pszKey); }},
        {"hosts", [](const char* pszKey) { return SmartHosts().Contains(std::string_view(pszKey, 3)); }},
        {"masks", [](const char* pszKey) { return Masquerading().Contains(std::string_view(pszKey, 3)); }},
        {"listed", [&](const char* pszKey) { return interceptor.IsListed(pszKey); }}};
    auto time = std::filesystem::file_time_type::clock::now();
    for (const auto& [strName, Holds] : holds) {
        const std::string strPath = directory.Write(strName, "new: 1\n");
        std::filesystem::last_write_time(strPath, time += std::chrono::hours(1));
        ReloadChangedTables(false, &interceptor);
        EXPECT_TRUE(Holds("new: 1")) << strName;
        EXPECT_FALSE(Holds("old: 1")) << strName;
        for (const auto& [fault, pszLater] :
             {std::pair{Platform::EFault::Read, "mid: 1"}, {Platform::EFault::Open, "end: 1"}}) {
            directory.Write(strName, pszLater);
            std::filesystem::last_write_time(strPath, time += std::chrono::hours(1));
            const Platform::CInjectedFault once(fault, 1, EMFILE);
            EXPECT_FALSE(ReloadChangedTables(false, &interceptor)) << strName;
            EXPECT_TRUE(ReloadChangedTables(false, &interceptor) && Holds(pszLater)) << strName;
        }
    }
    EXPECT_TRUE(log.Contains("could not reload 'filters'-file"));
    LocalDomains().Append("l.example");
    Aliases().Load(directory.Write("aliases", "").c_str());
    directory.Write("aliases", "a@l.example: b@l.example\nb@l.example: c@far.example\n");
    ReloadChangedTables(false, &interceptor);
    EXPECT_EQ(Aliases().ResolveRecipient("a@l.example"), "c@far.example");
    Aliases().RemoveAll();
    LocalDomains().RemoveAll();
    Filters().RemoveAll();
    BackupDomains().RemoveAll();
    SmartHosts().RemoveAll();
    Masquerading().RemoveAll();
}

TEST(ThreadControlTest, GivesAllThatAreStoppedTogetherOneLimit)
{
    static Bex::CEvent release;
    struct SDeaf : Bex::CThread
    {
        void Body() override { release.Wait(Platform::INFINITE); }
    };
    constexpr uint64_t MILLIS = 500;
    const auto limit = Platform::CWaitLimit().For(MILLIS);
    const uint64_t nBegin = Platform::TickCount();
    for (int n = 0; n < 5; ++n) {
        auto pDeaf = std::make_unique<SDeaf>();
        EXPECT_TRUE(pDeaf->Start() && ThreadControl::Stop(std::move(pDeaf), "deaf", limit, [] {}));
    }
    EXPECT_LT(Platform::TickCount() - nBegin, 4 * MILLIS);
    release.Set();
    EXPECT_TRUE(Becomes([] { return !Bex::CThread::AnyAbandoned(); }));
}

TEST(DeletionListTest, DeletesWhatWasDeliveredAndNothingThatCameLater)
{
    CTemporaryDirectory directory;
    auto pEarlier = std::make_unique<CDeletionList>();
    for (const char* pszName : {"same", "replaced", "gone", "touched", "rewritten"}) {
        const std::string strPath = directory.Write(pszName, "a: b\r\n\r\nfirst");
        auto pFile = std::make_unique<CHeldMailFile>();
        CMail mail, other;
        ASSERT_TRUE(mail.Load(strPath.c_str(), *pFile));
        EXPECT_EQ(other.Load(strPath.c_str(), false).result, ELoadResult::Busy); // it is ours until it is gone
        pEarlier->Add(std::move(pFile));
        EXPECT_TRUE(pEarlier->Contains(strPath.c_str()));
    }
    directory.Write("rewritten", "a: b\r\n\r\nother");
    for (const char* pszName : {"touched", "rewritten"})
        std::filesystem::last_write_time(directory / pszName, {});
    const std::string strReplaced = directory.Write("new", "second mail");
    std::filesystem::rename(strReplaced, directory / "replaced");
    std::filesystem::remove(directory / "gone");
    {
        const Platform::CInjectedFault unseen(Platform::EFault::Stat, 1, EIO, 5);
        EXPECT_FALSE(pEarlier->RemoveDelivered()); // nobody can tell which file it is
        EXPECT_TRUE(std::filesystem::exists(directory / "same"));
    }
    pEarlier = nullptr; // with its agent
    EXPECT_EQ(CMail().Load((directory / "same").c_str(), false).result, ELoadResult::Busy);
    CDeletionList list;
    list.Adopt({});
    EXPECT_TRUE(list.RemoveDelivered());
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(directory.Names(), (std::set<std::string>{"replaced", "rewritten"}));
    EXPECT_FALSE(list.RemoveDelivered());
}
