#include "Tobix/CMailRouter.h"

#include "Bex/FrozenLine.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Common/IsValidAddress.h"
#include "Common/MailHlpr.h"
#include "Platform/CNativeThread.h"
#include "Tobix/DMARCPolicy.h"
#include "Tobix/ForwardingRewrites.h"
#include "Tobix/MailLog.h"

#include <utility>

namespace {

constexpr Bex::FrozenLine FILTERED_NOT_WRITTEN_LINE = 211;
constexpr Bex::FrozenLine OUTGOING_NOT_WRITTEN_LINE = 385;

/// An alias sends it on to a remote address.
bool IsSentOn(const CMail& mail)
{
    for (const Bex::CSimpleString& strRecipient : mail.Recipients()) {
        if (IsLocalAddress(strRecipient) && !IsLocalAddress(Aliases().ResolveRecipient(strRecipient.Lowered())))
            return true;
    }
    return false;
}

} // namespace

CMailRouter::CMailRouter(const SMailDirectories& directories, CInterceptor& interceptor,
                         std::shared_ptr<COutgoingFiles> pOutgoing, const Platform::IWaitable& stop,
                         std::function<void()> BeforeWaiting)
    : m_directories(directories), m_interceptor(interceptor), m_stop(&stop), m_BeforeWaiting(std::move(BeforeWaiting)),
      m_mailboxes(directories.strQueue), m_identity(LocalHostIdentity::Obtain()), m_pOutgoing(std::move(pOutgoing))
{}

CMailRouter::EOutcome CMailRouter::Route(const CMail& mail, CCopyGroup& group)
{
    if (const EFilterResult result = Filter(mail, group); result != EFilterResult::Passed)
        return result == EFilterResult::Caught ? EOutcome::Delivered : EOutcome::Failed;
    return LearnAuthorPolicy(mail) ? Deliver(mail, group) : EOutcome::Retry;
}

/// Before the first copy is made: a stop while name servers are silent leaves nothing that the next start would repeat.
bool CMailRouter::LearnAuthorPolicy(const CMail& mail)
{
    m_strAuthorPolicy = {};
    const Bex::CSimpleString strDomain = AuthorDomain(mail);
    if (strDomain.IsEmpty() || !IsSentOn(mail))
        return true;
    const auto policy = LookupDMARCPolicy(strDomain, m_stop, m_BeforeWaiting);
    m_strAuthorPolicy = policy.value_or("");
    return policy.has_value();
}

CMailRouter::EOutcome CMailRouter::Deliver(const CMail& mail, CCopyGroup& group)
{
    if (const Bex::CSimpleString strSender = mail.EnvelopeSender().Lowered(); m_interceptor.IsListed(strSender))
        m_interceptor.Intercept(mail, strSender, "sent", group);
    for (const Bex::CSimpleString& strRecipient : mail.Recipients()) {
        if (!RouteRecipient(mail, strRecipient, group))
            return EOutcome::Failed;
    }
    return EOutcome::Delivered;
}

CMailRouter::EFilterResult CMailRouter::Filter(const CMail& mail, CCopyGroup& group)
{
    Bex::CSimpleString strReason;
    if (!Config().GetFlag(Keys::FILTER_CONTENT) || !Filters().ContentFilterMatch(mail, strReason))
        return EFilterResult::Passed;
    Bex::CSimpleString strPath;
    const SSaveResult saved = group.SaveNew(
        mail, EWriteMode::Envelope, m_directories.strFilter, [this] { return m_names.FilterCopy(); }, strPath);
    if (!saved) {
        MailLog::NotSaved(mail, strPath, saved.error, FILTERED_NOT_WRITTEN_LINE);
        return EFilterResult::Failed;
    }
    MailLog::Filtered(mail, strReason);
    RunPostScript(m_directories.strFilter, strPath, ScriptsRunInParallel());
    return EFilterResult::Caught;
}

bool CMailRouter::RouteRecipient(const CMail& mail, const Bex::CSimpleString& strRecipient, CCopyGroup& group)
{
    CMail copy(mail, strRecipient);
    const Bex::CTime now = Bex::CTime::Now();
    const Bex::CSimpleString strFileName = m_names.RecipientCopy(now, Platform::CurrentThreadId());
    AddReceived(copy, strRecipient, now);
    Bex::CSimpleString strTarget = strRecipient;
    if (IsLocalAddress(strTarget))
        strTarget = Aliases().ResolveRecipient(strTarget.Lowered());
    const bool bRouted = IsLocalAddress(strTarget) ? m_mailboxes.StoreInMailbox(copy, strTarget, strFileName, group)
                                                   : SendOut(copy, strRecipient, strTarget, {now, strFileName}, group);
    if (bRouted && m_interceptor.IsListed(strTarget))
        m_interceptor.Intercept(copy, strTarget.Lowered(), "received", group);
    return bRouted;
}

bool CMailRouter::SendOut(CMail& copy, const Bex::CSimpleString& strAddressed, const Bex::CSimpleString& strTarget,
                          SFirstName name, CCopyGroup& group)
{
    if (!IsValidAddress(strTarget)) {
        MailLog::RecipientNotValid(copy);
        return false;
    }
    if (!strTarget.EqualsNoCase(strAddressed))
        ApplyForwardingRewrites(copy, strAddressed, m_strAuthorPolicy);
    copy.SetRecipients(strTarget);
    const Bex::CSimpleString strDomain = strTarget.AfterFirst('@').Lowered();
    Bex::CSimpleString strName;
    const auto NextName = [&] {
        m_pOutgoing->Withdraw(strName);
        strName = name.strText.IsEmpty() ? m_names.RecipientCopy(name.time, Platform::CurrentThreadId())
                                         : std::exchange(name.strText, Bex::CSimpleString());
        m_pOutgoing->Announce(strName, strDomain);
        return strName;
    };
    Bex::CSimpleString strPath;
    const SSaveResult saved = group.SaveNew(copy, EWriteMode::Envelope, m_directories.strOutgoing, NextName, strPath);
    if (!saved) {
        m_pOutgoing->Withdraw(strName);
        MailLog::NotSaved(copy, strPath, saved.error, OUTGOING_NOT_WRITTEN_LINE);
        return false;
    }
    MailLog::SavedInOutgoing(copy);
    if (!Config().GetFlag(Keys::AUTO_TRANSPORT))
        RunPostScript(m_directories.strOutgoing, strPath, ScriptsRunInParallel());
    return true;
}

void CMailRouter::AddReceived(CMail& copy, const Bex::CSimpleString& strRecipient, Bex::CTime now) const
{
    if (!Config().GetFlag(Keys::HEADER_RECEIVED_CREATE))
        return;
    const bool bNameRecipient = Config().GetFlag(Keys::HEADER_RECEIVED_RECIPIENT);
    copy.Received().Prepend(
        MakeReceivedValue(m_identity.strHostName, bNameRecipient ? strRecipient : Bex::CSimpleString(), now));
}
