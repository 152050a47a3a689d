#pragma once

#include "Bex/CSimpleString.h"
#include "Common/CMail.h"
#include "Common/LocalHostIdentity.h"
#include "Platform/CWaitLimit.h"
#include "Tobix/CCopyGroup.h"
#include "Tobix/CFileNames.h"
#include "Tobix/CInterceptor.h"
#include "Tobix/CMailboxStore.h"
#include "Tobix/COutgoingFiles.h"
#include "Tobix/SMailDirectories.h"

#include <memory>
#include <string>

/// Filters one mail, makes a copy for each recipient and puts it into a mailbox or into the outgoing directory.
/// Owned by the local agent and used on its thread.
class CMailRouter
{
public:
    enum class EOutcome {
        Delivered,
        Retry,       ///< nothing was done, the mail stays as it is
        Held,        ///< the same, until another host lets go of HeldAccount
        Unanswered,  ///< the same, until a name server has answered
        Interrupted, ///< something is short: OpenRecipients have no copy yet, the others have theirs
        Failed       ///< logged: copies made so far stay, recipients not reached yet are skipped
    };

    /// The domains of what is sent out are told to pOutgoing. The stop ends the wait for name servers.
    CMailRouter(const SMailDirectories& directories, CInterceptor& interceptor,
                std::shared_ptr<COutgoingFiles> pOutgoing, const Platform::IWaitable& stop);

    /// Exceptions of the library pass through and mean that the mail failed.
    EOutcome Route(const CMail& mail, CCopyGroup& group);
    const std::string& OpenRecipients() const { return m_strOpen; } ///< as CMail::SetRecipients takes them
    const std::string& HeldAccount() const { return m_mailboxes.HeldAccount(); }
    bool IsHeld(std::string_view account) const { return m_mailboxes.IsHeld(account); } ///< its mail has to rest

private:
    bool LearnAuthorPolicy(const CMail& mail, CCopyGroup& group);
    void InterceptSent(const CMail& mail, CCopyGroup& group);
    EOutcome Deliver(const CMail& mail, CCopyGroup& group);
    enum class EFilterResult { Passed, Caught, Busy, Failed };
    EFilterResult Filter(const CMail& mail, CCopyGroup& group);
    void RunScript(const Bex::CSimpleString& strDirectory, const Bex::CSimpleString& strPath, CCopyGroup& group) const;
    ERouted TryRecipient(const CMail& mail, const Bex::CSimpleString& strRecipient, CCopyGroup& group);
    ERouted RouteRecipient(const CMail& mail, const Bex::CSimpleString& strRecipient, CCopyGroup& group);
    struct SFirstName
    {
        Bex::CTime time;
        Bex::CSimpleString strText;
    };
    ERouted SendOut(CMail& copy, const Bex::CSimpleString& strTarget, SFirstName name, CCopyGroup& group);
    void AddReceived(CMail& copy, const Bex::CSimpleString& strRecipient, Bex::CTime now) const;

    SMailDirectories m_directories;
    CInterceptor& m_interceptor;
    Platform::CWaitLimit m_stop;
    CMailboxStore m_mailboxes;
    CFileNames m_names;
    LocalHostIdentity m_identity;
    std::shared_ptr<COutgoingFiles> m_pOutgoing;
    std::string m_strOpen;
    Bex::CSimpleString m_strAuthorPolicy; ///< of the mail that is being routed; empty unless it is sent on
};
