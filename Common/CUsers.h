#pragma once

#include "Bex/CFileTreeChangeMonitor.h"
#include "Bex/CHashMap.h"
#include "Bex/CSimpleString.h"
#include "Bex/CWatchRenewal.h"

#include <atomic>
#include <memory>
#include <string_view>
#include <vector>

/// What is recorded of an account; local delivery enforces neither.
struct CUserEntry
{
    int iQuota = 0;
    int iMaxSize = 0;
    Bex::CSimpleString strDirectory; ///< its own name in the spool directory, which may have capitals
};

/// The local users: one per directory in the spool directory, by lower-case name.
///
/// Lookups come from any thread; what loads, builds and watches belongs to the main thread. A rebuild reads all
/// accounts first and then replaces the list at once, so that nobody finds a user missing meanwhile.
class CUsers : public Bex::CHashMap<Bex::CSimpleString, std::unique_ptr<CUserEntry>>
{
public:
    /// Reports only what happens to files named "password" in a user's directory.
    class CUserChangeMonitor : public Bex::CFileTreeChangeMonitor
    {
    public:
        bool OnRecord(const Platform::STreeRecord& record, const Platform::STreeRecord* pNext) override;
        static bool Counts(std::string_view relativeName); ///< the test that OnRecord makes
    };

    ~CUsers() override = default;

    bool InitUsers(); ///< reads SpoolDir; false when the user list cannot be made (logged)
    bool LoadUsers(const Bex::CSimpleString& strSpoolDirectory);
    bool ReadUsers(const Bex::CSimpleString& strSpoolDirectory); ///< once, without watching; false: not listed (logged)
    bool IsListed() const { return m_bListed; }                  ///< by the last build
    bool BuildUserList(); ///< when the listing fails (logged), those that are known stay
    /// A password file changed, or another directory stands in the place of the tree, or it can be listed again.
    /// Watches it anew when that is due. To be asked every second: on a network file system, which tells nothing of
    /// what other hosts do there, each call looks at as many accounts as makes one look at each in ROUND_MILLIS.
    bool HasTreeChanged();
    bool IsUser(std::string_view name) const { return Contains(name); }
    CUserChangeMonitor& ChangeMonitor() { return m_monitor; }
    uint32_t UserCount() const { return m_nUsers; }
    std::vector<Bex::CSimpleString> Names() const; ///< sorted
    Bex::CSimpleString SpoolRoot() const;          ///< where the mailboxes are; a copy
    /// The mailbox directory of a user; for another name where it would be. Empty for a name that can have none,
    /// such as one with "/", which would lead out of the spool root.
    Bex::CSimpleString UserDirectory(std::string_view name) const;

private:
    using CAccounts = std::vector<std::unique_ptr<CUserEntry>>;

    struct SLook
    {
        Bex::CSimpleString strPath;
        Platform::SFileIdentity seen; ///< nothing where there is no file
        bool HasChanged();            ///< since the last look
    };
    static constexpr uint64_t ROUND_MILLIS = 25000;

    bool HaveOthersChanged();
    void LookFrom(const CAccounts& accounts);
    void SetSpoolRoot(const Bex::CSimpleString& strRoot);
    void Watch();
    bool IsWatched() const;
    void Replace(CAccounts accounts);
    bool ReadAccounts(CAccounts& accounts) const;
    std::unique_ptr<CUserEntry> ReadAccount(const char* pszDirectoryName, int iDefaultQuota) const;

    Bex::CSimpleString m_strSpoolDirectory; ///< listed by the last build
    CUserChangeMonitor m_monitor;
    Platform::SFileIdentity m_watched; ///< the directory, when its watch was made
    Bex::CWatchRenewal m_renewal;
    bool m_bListed = true;      ///< by the last build
    std::vector<SLook> m_looks; ///< on a network file system: the tree, then the accounts' password files
    size_t m_nNextLook = 0;
    uint64_t m_nRoundTicks = 0;          ///< when the first of them was looked at
    Platform::SFileIdentity m_usersFrom; ///< the directory in which they were found
    std::atomic<uint32_t> m_nUsers = 0;
    Bex::CSimpleString m_strSpoolRoot;
};
