#include "Tobix/CMailRouter.h"

#include "Bex/CActivity.h"
#include "Bex/CFileException.h"
#include "Bex/CLogContext.h"
#include "Bex/CThread.h"
#include "Bex/FrozenLine.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Common/MailHlpr.h"
#include "Platform/CNativeThread.h"
#include "SMTPc/FindTargets.h"
#include "Tobix/DMARCPolicy.h"
#include "Tobix/ForwardingRewrites.h"
#include "Tobix/MailLog.h"
#include "Tobix/SRecipientRoute.h"

#include <utility>

namespace {

constexpr Bex::FrozenLine FILTERED_NOT_WRITTEN_LINE = 211;
constexpr Bex::FrozenLine OUTGOING_NOT_WRITTEN_LINE = 385;

/// An alias sends it on to a remote address.
bool IsSentOn(const CMail& mail)
{
    for (const Bex::CSimpleString& strRecipient : mail.Recipients()) {
        if (SRecipientRoute::Of(strRecipient).bSentOn)
            return true;
    }
    return false;
}

/// A script is started with the copy's path.
ENaming NamingBefore(bool bScript) { return bScript ? ENaming::Durable : ENaming::WhenDurable; }

} // namespace

CMailRouter::CMailRouter(const SMailDirectories& directories, CInterceptor& interceptor,
                         std::shared_ptr<COutgoingFiles> pOutgoing, const Platform::IWaitable& stop)
    : m_directories(directories), m_interceptor(interceptor), m_stop(&stop), m_mailboxes(directories.strQueue),
      m_identity(LocalHostIdentity::Obtain()), m_pOutgoing(std::move(pOutgoing))
{}

CMailRouter::EOutcome CMailRouter::Route(const CMail& mail, CCopyGroup& group)
{
    switch (Filter(mail, group)) {
    case EFilterResult::Caught:
        return EOutcome::Delivered;
    case EFilterResult::Busy:
        return EOutcome::Retry;
    case EFilterResult::Failed:
        return EOutcome::Failed;
    case EFilterResult::Passed:
        break;
    }
    if (!LearnAuthorPolicy(mail, group))
        return EOutcome::Unanswered;
    try {
        const EOutcome outcome = Deliver(mail, group);
        if (outcome == EOutcome::Delivered || outcome == EOutcome::Failed)
            InterceptSent(mail, group);
        return outcome;
    } catch (...) {
        InterceptSent(mail, group);
        throw;
    }
}

/// Once for each mail, however often it has to be tried.
void CMailRouter::InterceptSent(const CMail& mail, CCopyGroup& group)
{
    if (const Bex::CSimpleString strSender = mail.EnvelopeSender().Lowered(); m_interceptor.IsListed(strSender))
        m_interceptor.Intercept(mail, strSender, "sent", group);
}

/// Before the first copy is made: a stop while name servers are silent leaves nothing that the next start would repeat.
bool CMailRouter::LearnAuthorPolicy(const CMail& mail, CCopyGroup& group)
{
    m_strAuthorPolicy = {};
    const Bex::CSimpleString strDomain = AuthorDomain(mail);
    if (strDomain.IsEmpty() || !IsSentOn(mail))
        return true;
    const auto policy = LookupDMARCPolicy(strDomain, m_stop, [&group] { group.EndBeforeWaiting(); });
    m_strAuthorPolicy = policy.value_or("");
    return policy.has_value();
}

CMailRouter::EOutcome CMailRouter::Deliver(const CMail& mail, CCopyGroup& group)
{
    m_strOpen.clear();
    bool bGoesOn = true; // also behind an account that is held, which says nothing about the others
    for (const Bex::CSimpleString& strRecipient : mail.Recipients()) {
        ERouted routed = ERouted::Busy;
        if (bGoesOn && !Bex::CThread::IsCallerStopped()) // of very many, a stop cannot wait for the last one
            routed = TryRecipient(mail, strRecipient, group);
        if (routed == ERouted::Failed)
            return EOutcome::Failed;
        bGoesOn = routed != ERouted::Busy;
        if (routed != ERouted::Done)
            m_strOpen.append(strRecipient.View()) += ',';
        else
            group.EndIfDue();
    }
    if (m_strOpen.empty())
        return EOutcome::Delivered;
    if (group.CopiesOfMail() > 0)
        return EOutcome::Interrupted;
    return bGoesOn ? EOutcome::Held : EOutcome::Retry;
}

ERouted CMailRouter::TryRecipient(const CMail& mail, const Bex::CSimpleString& strRecipient, CCopyGroup& group)
{
    Bex::CActivity::Alive();
    const uint32_t nCopies = group.CopiesOfMail();
    try {
        return RouteRecipient(mail, strRecipient, group);
    } catch (...) {
        if (!Bex::IsHandledExceptionBusy())
            throw;
        return group.CopiesOfMail() > nCopies ? ERouted::Done : ERouted::Busy;
    }
}

void CMailRouter::RunScript(const Bex::CSimpleString& strDirectory, const Bex::CSimpleString& strPath,
                            CCopyGroup& group) const
{
    const bool bParallel = ScriptsRunInParallel();
    if (!bParallel && HasPostScript(strDirectory))
        group.EndBeforeWaiting();
    RunPostScript(strDirectory, strPath, bParallel);
}

CMailRouter::EFilterResult CMailRouter::Filter(const CMail& mail, CCopyGroup& group)
{
    Bex::CSimpleString strReason;
    if (!Config().GetFlag(Keys::FILTER_CONTENT) || !Filters().ContentFilterMatch(mail, strReason))
        return EFilterResult::Passed;
    Bex::CSimpleString strPath;
    const SSaveResult saved = group.SaveNew(
        mail, EWriteMode::Envelope, m_directories.strFilter, NamingBefore(HasPostScript(m_directories.strFilter)),
        [this] { return m_names.FilterCopy(); }, strPath);
    if (!saved) {
        return MailLog::NotSaved(mail, strPath, saved.error, FILTERED_NOT_WRITTEN_LINE) == ERouted::Busy
                   ? EFilterResult::Busy
                   : EFilterResult::Failed;
    }
    MailLog::Filtered(mail, strReason);
    RunScript(m_directories.strFilter, strPath, group);
    return EFilterResult::Caught;
}

ERouted CMailRouter::RouteRecipient(const CMail& mail, const Bex::CSimpleString& strRecipient, CCopyGroup& group)
{
    const Bex::CLogContext context({}, {}, {}, strRecipient);
    CMail copy(mail, strRecipient);
    const Bex::CTime now = Bex::CTime::Now();
    const Bex::CSimpleString strFileName = m_names.RecipientCopy(now, Platform::CurrentThreadId());
    AddReceived(copy, strRecipient, now);
    const SRecipientRoute route = SRecipientRoute::Of(strRecipient);
    if (route.bSentOn)
        ApplyForwardingRewrites(copy, strRecipient, m_strAuthorPolicy);
    ERouted routed = ERouted::Failed;
    if (route.way == SRecipientRoute::EWay::Mailbox)
        routed = m_mailboxes.StoreInMailbox(copy, route.strTarget, strFileName, group);
    else if (route.way == SRecipientRoute::EWay::Outgoing)
        routed = SendOut(copy, route.strTarget, {now, strFileName}, group);
    else
        MailLog::RecipientNotValid(copy);
    if (routed == ERouted::Done && m_interceptor.IsListed(route.strTarget))
        m_interceptor.Intercept(copy, route.strTarget.Lowered(), "received", group);
    return routed;
}

ERouted CMailRouter::SendOut(CMail& copy, const Bex::CSimpleString& strTarget, SFirstName name, CCopyGroup& group)
{
    copy.SetRecipients(strTarget);
    const auto NextName = [this, name = std::move(name), strDomain = strTarget.AfterFirst('@').Lowered(),
                           strRoute = m_pOutgoing->KnowsRoutes() ? RouteOf(copy.EnvelopeSender(), strTarget)
                                                                 : Bex::CSimpleString(),
                           strName = Bex::CSimpleString()]() mutable {
        m_pOutgoing->Withdraw(strName);
        strName = name.strText.IsEmpty() ? m_names.RecipientCopy(name.time, Platform::CurrentThreadId())
                                         : std::exchange(name.strText, Bex::CSimpleString());
        m_pOutgoing->Announce(strName, strDomain, strRoute, Bex::CLogContext::FirstName());
        return strName;
    };
    const bool bScript = !Config().GetFlag(Keys::AUTO_TRANSPORT) && HasPostScript(m_directories.strOutgoing);
    Bex::CSimpleString strPath;
    const SSaveResult saved =
        group.SaveNew(copy, EWriteMode::Envelope, m_directories.strOutgoing, NamingBefore(bScript), NextName, strPath);
    if (!saved) {
        m_pOutgoing->Withdraw(Bex::NameOf(strPath));
        return MailLog::NotSaved(copy, strPath, saved.error, OUTGOING_NOT_WRITTEN_LINE);
    }
    const Bex::CLogContext sent(Bex::NameOf(strPath), {}, copy.EnvelopeSender(), strTarget);
    MailLog::SavedInOutgoing(copy);
    if (bScript)
        RunScript(m_directories.strOutgoing, strPath, group);
    return ERouted::Done;
}

void CMailRouter::AddReceived(CMail& copy, const Bex::CSimpleString& strRecipient, Bex::CTime now) const
{
    if (!Config().GetFlag(Keys::HEADER_RECEIVED_CREATE))
        return;
    const bool bNameRecipient = Config().GetFlag(Keys::HEADER_RECEIVED_RECIPIENT);
    copy.Received().Prepend(
        MakeReceivedValue(m_identity.strHostName, bNameRecipient ? strRecipient : Bex::CSimpleString(), now));
}
