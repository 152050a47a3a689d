#pragma once

#include "Bex/CConfigFile.h"
#include "Bex/CMutex.h"
#include "Common/CMail.h"
#include "Tobix/CCopyGroup.h"
#include "Tobix/CSharedNumbers.h"
#include "Tobix/ERouted.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

/// Stores copies in the mailboxes of local users, under the lock of the account, and starts the programs that the
/// account asks for. Owned by the router and used on the local agent's thread.
class CMailboxStore
{
public:
    /// The automatic responder's replies go to the queue directory.
    explicit CMailboxStore(const Bex::CSimpleString& strQueueDirectory);

    /// Waits while another process holds the account: without limit, or, where it may be another host's (`LockDir`),
    /// for 10 s, after which it is Held until it is had at once, for which it is asked once a second. The group ends
    /// before that, and before a program is waited for. CSystemException or CInvalidParameterException when the
    /// account's lock cannot be made, CFileException when the account file breaks off while it is read.
    ERouted StoreInMailbox(const CMail& copy, const Bex::CSimpleString& strUser,
                           const Bex::CSimpleString& strRecipientFileName, CCopyGroup& group);

    const std::string& HeldAccount() const { return m_strHeld; } ///< of the last mail that was Held
    bool IsHeld(std::string_view account) const;                 ///< mail for it need not be looked at yet

private:
    struct SAccount;

    ERouted LockAccount(Bex::CMutex& lock, const SAccount& account, CCopyGroup& group);
    ERouted LoadAccount(SAccount& account);
    template <class TTell>
    ERouted Failed(Platform::SError error, TTell Tell);
    ERouted WriteMailFile(const CMail& copy, SAccount& account, CCopyGroup& group);
    uint32_t NextNumber(SAccount& account, CCopyGroup& group);
    SSaveResult WriteNumbered(const CMail& copy, EWriteMode mode, SAccount& account, CCopyGroup& group);
    SSaveResult WriteInMaildir(const CMail& copy, EWriteMode mode, SAccount& account, CCopyGroup& group);
    void RecordNextUID(SAccount& account) const;
    static bool WaitsForPrograms(const SAccount& account);
    ERouted RunPrograms(SAccount& account, const Bex::CSimpleString& strRecipientFileName, CCopyGroup& group) const;

    Bex::CSimpleString m_strQueueDirectory;
    std::optional<CSharedNumbers> m_numbers; ///< with `LockDir`
    Bex::CSimpleString m_strTemporary;       ///< name of this host's mail in the making, with `LockDir`
    std::string m_strHeld;                   ///< the account for which the last mail that was Held waits
    std::map<std::string, uint64_t, std::less<>> m_heldElsewhere; ///< waited for in vain: when they are asked for again
    bool m_bTold = false;                       ///< that the cluster fails, since the last mail was stored
    std::map<std::string, uint64_t> m_nextLook; ///< by account: when its Maildir is looked through for leftovers
};
