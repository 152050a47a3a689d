#pragma once

#include "Bex/CConfigFile.h"
#include "Common/CMail.h"
#include "Tobix/CCopyGroup.h"
#include "Tobix/ERouted.h"

#include <cstdint>
#include <map>
#include <string>

/// Stores copies in the mailboxes of local users, under the lock of the account, and starts the programs that the
/// account asks for. Owned by the router and used on the local agent's thread.
class CMailboxStore
{
public:
    /// The automatic responder's replies go to the queue directory.
    explicit CMailboxStore(const Bex::CSimpleString& strQueueDirectory) : m_strQueueDirectory(strQueueDirectory) {}

    /// Waits without limit while another process holds the account; the group ends before that, and before a program
    /// is waited for.
    /// CSystemException or CInvalidParameterException when the account's lock cannot be made, CFileException when
    /// the account file breaks off while it is read.
    ERouted StoreInMailbox(const CMail& copy, const Bex::CSimpleString& strUser,
                           const Bex::CSimpleString& strRecipientFileName, CCopyGroup& group);

private:
    struct SAccount;

    static ERouted LoadAccount(SAccount& account);
    ERouted WriteMailFile(const CMail& copy, SAccount& account, CCopyGroup& group);
    SSaveResult WriteInMaildir(const CMail& copy, EWriteMode mode, SAccount& account, CCopyGroup& group);
    static void RecordNextUID(SAccount& account);
    static bool WaitsForPrograms(const SAccount& account);
    ERouted RunPrograms(SAccount& account, const Bex::CSimpleString& strRecipientFileName, CCopyGroup& group) const;

    Bex::CSimpleString m_strQueueDirectory;
    std::map<std::string, uint64_t> m_nextLook; ///< by account: when its Maildir is looked through for leftovers
};
