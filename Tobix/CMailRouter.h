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

#include <functional>
#include <memory>

/// Filters one mail, makes a copy for each recipient and puts it into a mailbox or into the outgoing directory.
/// Owned by the local agent and used on its thread.
class CMailRouter
{
public:
    enum class EOutcome {
        Delivered,
        Retry, ///< nothing was done, the mail stays as it is
        Failed ///< logged: copies made so far stay, recipients not reached yet are skipped
    };

    /// The domains of what is sent out are told to pOutgoing. BeforeWaiting is called before anything that may take
    /// long and does not depend on this system; the stop ends it.
    CMailRouter(const SMailDirectories& directories, CInterceptor& interceptor,
                std::shared_ptr<COutgoingFiles> pOutgoing, const Platform::IWaitable& stop,
                std::function<void()> BeforeWaiting);

    /// Exceptions of the library pass through and mean that the mail failed.
    EOutcome Route(const CMail& mail, CCopyGroup& group);

private:
    bool LearnAuthorPolicy(const CMail& mail);
    EOutcome Deliver(const CMail& mail, CCopyGroup& group);
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
    Platform::CWaitLimit m_stop;
    std::function<void()> m_BeforeWaiting;
    CMailboxStore m_mailboxes;
    CFileNames m_names;
    LocalHostIdentity m_identity;
    std::shared_ptr<COutgoingFiles> m_pOutgoing;
    Bex::CSimpleString m_strAuthorPolicy; ///< of the mail that is being routed; empty unless it is sent on
};
