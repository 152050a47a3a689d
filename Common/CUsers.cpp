#include "Common/CUsers.h"

#include "Bex/CConfigFile.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Platform/Clock.h"

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Common/Users";
constexpr Bex::FrozenLine NO_MONITOR_LINE = 53;
constexpr Bex::FrozenLine DIRECTORY_SKIPPED_LINE = 111;
constexpr Bex::FrozenLine NOT_LISTED_LINE = 120;

/// What a sender wrote must not lead out of the spool root.
bool MayNameDirectory(std::string_view name)
{
    constexpr std::string_view UNFIT("/\0", 2);
    return !name.empty() && name[0] != '.' && name.find_first_of(UNFIT) == std::string_view::npos;
}

} // namespace

bool CUsers::CUserChangeMonitor::OnRecord(const Platform::STreeRecord& record, const Platform::STreeRecord*)
{
    return Counts(record.strName);
}

bool CUsers::CUserChangeMonitor::Counts(std::string_view relativeName)
{
    const size_t nSlash = relativeName.rfind('/');
    return nSlash != std::string_view::npos && Bex::EqualNoCase(relativeName.substr(nSlash + 1), "password");
}

void CUsers::SetSpoolRoot(const Bex::CSimpleString& strRoot)
{
    const Bex::CScopedLock lock(LockObject());
    m_strSpoolRoot = strRoot;
}

bool CUsers::ReadUsers(const Bex::CSimpleString& strSpoolDirectory)
{
    SetSpoolRoot(strSpoolDirectory);
    m_strSpoolDirectory = strSpoolDirectory;
    return BuildUserList();
}

bool CUsers::InitUsers()
{
    const Bex::CSimpleString strRoot = Config().GetPath(Keys::SPOOL_DIR);
    SetSpoolRoot(strRoot);
    Bex::LogInfo(Bex::MainLog(), "creating user-list...");
    if (LoadUsers(strRoot))
        return true;
    Bex::LogError(Bex::MainLog(), "could not create user-list");
    return false;
}

bool CUsers::LoadUsers(const Bex::CSimpleString& strSpoolDirectory)
{
    const bool bSameTree = m_strSpoolDirectory == strSpoolDirectory;
    m_strSpoolDirectory = strSpoolDirectory;
    m_renewal.Begin(m_strSpoolDirectory);
    Watch();
    const bool bBuilt = BuildUserList();
    if (!bBuilt && !bSameTree)
        Replace({});
    return bBuilt || (bSameTree && m_nUsers > 0);
}

/// What programs do in a Maildir is not ours, and its directories would take many times the watches.
void CUsers::Watch()
{
    m_watched = {};
    Platform::IdentityOf(m_strSpoolDirectory.Text(), m_watched, Platform::ELinks::Follow);
    m_monitor.Destroy();
    m_monitor.Create(m_strSpoolDirectory, CUserChangeMonitor::Counts, "Maildir");
    if (!m_monitor.IsCreated())
        Bex::LogError(Bex::MainLog(), "CUsers::Load failed creating FCM at %s:%d", SOURCE_FILE, NO_MONITOR_LINE);
}

bool CUsers::HasTreeChanged()
{
    const bool bChanged = m_monitor.HasChanged();
    if (!m_renewal.IsDue(m_monitor.IsCreated() && m_bListed))
        return HaveOthersChanged() || bChanged;
    if (!IsWatched())
        Watch();
    return true;
}

/// A directory that comes or goes changes the tree's own time.
bool CUsers::HaveOthersChanged()
{
    const uint64_t nElapsed = Platform::TickCount() - m_nRoundTicks;
    const size_t nDue = std::min<uint64_t>(m_looks.size(), 1 + m_looks.size() * nElapsed / ROUND_MILLIS);
    bool bChanged = false;
    for (; m_nNextLook < nDue; ++m_nNextLook)
        bChanged |= m_looks[m_nNextLook].HasChanged();
    if (nElapsed >= ROUND_MILLIS) {
        m_nNextLook = 0;
        m_nRoundTicks = Platform::TickCount();
    }
    return bChanged;
}

bool CUsers::SLook::HasChanged()
{
    Platform::SFileIdentity present;
    if (!Platform::IdentityOf(strPath.Text(), present, Platform::ELinks::Follow))
        present = {};
    return std::exchange(seen, present) != present;
}

/// Those that were looked at before stay as they were seen then.
void CUsers::LookFrom(const CAccounts& accounts)
{
    std::map<std::string, Platform::SFileIdentity, std::less<>> seen;
    for (const SLook& look : m_looks)
        seen.emplace(look.strPath.Text(), look.seen);
    m_looks.clear();
    const auto Add = [&](const Bex::CSimpleString& strPath) {
        SLook& look = m_looks.emplace_back(SLook{.strPath = strPath, .seen = {}});
        if (const auto known = seen.find(strPath.View()); known != seen.end())
            look.seen = known->second;
        else
            look.HasChanged();
    };
    Add(m_strSpoolDirectory);
    for (const std::unique_ptr<CUserEntry>& pAccount : accounts)
        Add(Bex::PathBelow(Bex::PathBelow(m_strSpoolDirectory, pAccount->strDirectory), "password"));
    m_nNextLook = 0;
    m_nRoundTicks = Platform::TickCount();
}

/// A watch that works is not given up for a listing that failed.
bool CUsers::IsWatched() const
{
    Platform::SFileIdentity directory;
    return m_monitor.IsCreated() &&
           Platform::IdentityOf(m_strSpoolDirectory.Text(), directory, Platform::ELinks::Follow) &&
           directory.IsSameInode(m_watched);
}

bool CUsers::BuildUserList()
{
    CAccounts accounts;
    Platform::SFileIdentity directory;
    m_bListed = Platform::IdentityOf(m_strSpoolDirectory.Text(), directory, Platform::ELinks::Follow);
    m_bListed = ReadAccounts(accounts) && m_bListed;
    const bool bVolumeAway = accounts.empty() && m_nUsers > 0 && !directory.IsSameInode(m_usersFrom);
    m_bListed = m_bListed && !bVolumeAway; // its mount point is empty, but no tree of ours
    if (m_bListed) {
        if (m_renewal.IsOnNetwork())
            LookFrom(accounts);
        Replace(std::move(accounts));
        m_usersFrom = directory;
    }
    return m_bListed;
}

void CUsers::Replace(CAccounts accounts)
{
    const Bex::CScopedLock lock(LockObject());
    RemoveAll();
    m_nUsers = static_cast<uint32_t>(accounts.size());
    for (std::unique_ptr<CUserEntry>& pAccount : accounts) {
        const Bex::CSimpleString strName = pAccount->strDirectory.Lowered();
        Set(strName, std::move(pAccount));
    }
}

bool CUsers::ReadAccounts(CAccounts& accounts) const
{
    const int iDefaultQuota = Config().GetInt(Keys::QUOTA);
    try {
        Bex::CFileFind find;
        if (!find.Open(Bex::JoinPath(m_strSpoolDirectory, "*.*")))
            Bex::ThrowFileException(SOURCE_FILE, __LINE__);
        while (find.Next()) {
            if (!find.IsDirectory() || find.Name()[0] == '.')
                continue;
            try {
                accounts.push_back(ReadAccount(find.Name(), iDefaultQuota));
            } catch (const Bex::CFileException& exception) {
                if (Platform::IsBusy(exception.Error()))
                    throw;
                Bex::LogCaught(exception, SOURCE_FILE, DIRECTORY_SKIPPED_LINE);
            }
        }
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, NOT_LISTED_LINE);
        return false;
    }
    return true;
}

std::unique_ptr<CUserEntry> CUsers::ReadAccount(const char* pszDirectoryName, int iDefaultQuota) const
{
    Bex::CConfigFile account;
    account.Load(Bex::JoinPath(Bex::PathBelow(m_strSpoolDirectory, pszDirectoryName), "config")); // none: the defaults
    auto pEntry = std::make_unique<CUserEntry>();
    pEntry->iQuota = account.GetInt(AccountKeys::QUOTA.Name(), iDefaultQuota);
    pEntry->iMaxSize = account.GetInt(AccountKeys::MAX_SIZE);
    pEntry->strDirectory = pszDirectoryName;
    return pEntry;
}

std::vector<Bex::CSimpleString> CUsers::Names() const
{
    std::vector<Bex::CSimpleString> names;
    {
        const Bex::CScopedLock lock(LockObject());
        for (CIterator node(*this); node; ++node)
            names.push_back(node->key);
    }
    std::ranges::sort(names, {}, [](const Bex::CSimpleString& strName) { return strName.View(); });
    return names;
}

Bex::CSimpleString CUsers::SpoolRoot() const
{
    const Bex::CScopedLock lock(LockObject());
    return m_strSpoolRoot;
}

Bex::CSimpleString CUsers::UserDirectory(std::string_view name) const
{
    if (!MayNameDirectory(name))
        return {};
    const Bex::CScopedLock lock(LockObject());
    const SNode* const pNode = Find(name);
    const std::string_view directory = pNode != nullptr ? pNode->value->strDirectory.View() : name;
    return Bex::PathBelow(m_strSpoolRoot, directory);
}
