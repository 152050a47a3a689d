#pragma once

#include "Bex/CSimpleString.h"
#include "Common/CMail.h"
#include "Common/LocalHostIdentity.h"
#include "Tobix/CCopyGroup.h"
#include "Tobix/CFileNames.h"
#include "Tobix/CInterceptor.h"
#include "Tobix/CMailboxStore.h"
#include "Tobix/COutgoingFiles.h"
#include "Tobix/SMailDirectories.h"

#include <memory>

/// Filters one mail, makes a copy for each recipient and puts it into a mailbox or into the outgoing directory.
/// Owned by the local agent and used on its thread.
class CMailRouter
{
public:
    /// The domains of what is sent out are told to pOutgoing.
    CMailRouter(const SMailDirectories& directories, CInterceptor& interceptor,
                std::shared_ptr<COutgoingFiles> pOutgoing);

    /// False (logged) when the mail failed: copies made so far stay, recipients not reached yet are skipped.
    /// Exceptions of the library pass through and mean the same.
    bool Route(const CMail& mail, CCopyGroup& group);

private:
    enum class EFilterResult { Passed, Caught, Failed };
    EFilterResult Filter(const CMail& mail, CCopyGroup& group);
    bool RouteRecipient(const CMail& mail, const Bex::CSimpleString& strRecipient, CCopyGroup& group);
    struct SFirstName
    {
        Bex::CTime time;
        Bex::CSimpleString strText;
    };
    bool SendOut(CMail& copy, const Bex::CSimpleString& strAddressed, const Bex::CSimpleString& strTarget,
                 SFirstName name, CCopyGroup& group);
    void AddReceived(CMail& copy, const Bex::CSimpleString& strRecipient, Bex::CTime now) const;

    SMailDirectories m_directories;
    CInterceptor& m_interceptor;
    CMailboxStore m_mailboxes;
    CFileNames m_names;
    LocalHostIdentity m_identity;
    std::shared_ptr<COutgoingFiles> m_pOutgoing;
};
