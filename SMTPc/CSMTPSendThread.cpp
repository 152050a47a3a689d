#include "SMTPc/CSMTPSendThread.h"

#include "Bex/CActivity.h"
#include "Bex/CFileException.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/CSilentPeers.h"
#include "Platform/CJournal.h"
#include "Platform/Errors.h"
#include "SMTPc/CSMTPSession.h"
#include "SMTPc/CWaitingConnections.h"
#include "SMTPc/ConsoleText.h"
#include "SMTPc/ErrorReport.h"
#include "SMTPc/FindTargets.h"

#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "SMTPc/SMTPSend";
constexpr uint64_t MILLIS_PER_SECOND = 1000;
constexpr uint64_t LONGEST_NAMING = 5'000; // milliseconds, of this host for a report
constexpr uint64_t LONGEST_PARTING = 500;  // milliseconds, with a host that nobody's mail waits for
constexpr uint64_t TIMEOUTS_PER_ATTEMPT = 2;
constexpr unsigned MOST_SESSIONS = 3; ///< with one target: behind other mail, with commands together, one by one

Bex::CSimpleString DisplayName(const CSmartHost& target)
{
    if (!target.strHostName.IsEmpty() || target.endPoint.Address() == nullptr)
        return target.strHostName;
    return target.endPoint.Address()->Text();
}

/// Of whatever mail. Who drops what comes to a host costs a time-out each time.
CSilentPeers& SilentAddresses()
{
    static CSilentPeers addresses;
    return addresses;
}

/// Takes those that did not answer lately out of the list.
CTargetList TakeSilent(CTargetList& targets)
{
    CTargetList others(false);
    CTargetList silent(false);
    for (CSmartHost target; targets.PopFirst(target);)
        (SilentAddresses().Contains(PlaceOf(target)) ? silent : others).Append(std::move(target));
    targets.AppendAll(others);
    return silent;
}

CSmartHost WithoutTls(const CSmartHost& target)
{
    CSmartHost copy = target;
    copy.mode = ETLSMode::None;
    copy.bSecondTry = true;
    return copy;
}

/// Of what the log holds as well: not twice into the journal.
void WriteErrorLine(const Bex::CSimpleString& strText)
{
    if (!Platform::CJournal::TakesStandardError())
        WriteConsole(stderr, Bex::CSimpleString::Formatted("%s\n", strText.Text()));
}

} // namespace

CSMTPSendThread::CSMTPSendThread(const SDeliverySettings& settings, std::shared_ptr<CWaitingConnections> pWaiting)
    : m_settings(settings), m_pWaiting(std::move(pWaiting))
{}

CSMTPSendThread::~CSMTPSendThread() = default;

void CSMTPSendThread::SendMail()
{
    SLoadedMail loaded;
    const SLoadResult load = LoadMail(m_strMailPath, loaded);
    m_iResult = static_cast<int>((load ? Attempt(loaded) : NotLoaded(load)).verdict);
}

SAttempt CSMTPSendThread::NotLoaded(const SLoadResult& load) const
{
    const auto strText = Bex::CSimpleString::Formatted("error: could not open file \"%s\": %d", m_strMailPath.Text(),
                                                       static_cast<int>(load.error.dwSysError));
    WriteErrorLine(strText);
    Bex::LogError(Bex::MainLog(), "%s", strText.Text());
    return {.verdict = EVerdict::NotPrepared, .error = load.error};
}

SAttempt CSMTPSendThread::Failed(const SDeliveryFailure& failure, const CMail& mail) const
{
    SPreparedMail prepared;
    prepared.strRecipient = RecipientOf(mail);
    prepared.strMessageID = mail.MessageID();
    Tell(failure, prepared, {});
    return failure.Outcome();
}

SAttempt CSMTPSendThread::Attempt(SLoadedMail& loaded)
{
    SAttempt attempt{EVerdict::Temporary};
    const auto failure = FailureOf([&] { attempt = TryToSend(loaded); });
    if (!failure)
        return attempt;
    // A stop may be all that kept it from its targets.
    return ShallRun() ? Failed(*failure, loaded.mail) : SAttempt{EVerdict::Stopped};
}

SAttempt CSMTPSendThread::TryToSend(SLoadedMail& loaded)
{
    SPreparedMail mail;
    if (loaded.prepared)
        mail = *std::exchange(loaded.prepared, {});
    else if (!PrepareMessage(loaded, mail))
        return {EVerdict::NotPrepared};
    const Platform::CWaitLimit limit = AttemptLimit();
    CTargetList targets = FindTargets(mail.strSender, mail.strRecipient, limit).targets;
    return TryTargets(mail, targets, limit);
}

Platform::CWaitLimit CSMTPSendThread::AttemptLimit() const
{
    return Platform::CWaitLimit(&StopEvent().Waitable())
        .For(TIMEOUTS_PER_ATTEMPT * m_settings.dwTimeout * MILLIS_PER_SECOND);
}

/// A second try without TLS is put behind the last target, and who is silent behind everybody else. However many there
/// are, none is begun once the attempt has lasted long enough; its result is that of the last one.
SAttempt CSMTPSendThread::TryTargets(SPreparedMail& mail, CTargetList& targets, Platform::CWaitLimit limit)
{
    SAttempt attempt{EVerdict::Stopped};
    bool bTried = false;
    m_bRefused = m_bBegunAnew = false;
    CTargetList late = TakeSilent(targets);
    PutReachedFirst(targets);
    for (CSmartHost target; targets.PopFirst(target) || late.PopFirst(target);) {
        if (!ShallRun())
            return {EVerdict::Stopped};
        if (bTried && !limit.HasTimeLeft())
            break;
        if (std::exchange(bTried, true))
            LetGoOfNext();
        const Bex::CActivity::CStep step("sends %s to %s", Bex::CSimpleString(Bex::NameOf(m_strMailPath.View())).Text(),
                                         DisplayName(target).Text());
        std::optional<CSMTPSession> session;
        const std::optional<SDeliveryFailure> failure = TryTarget(mail, target, limit, session);
        if (!failure)
            return Delivered(*session, target, mail);
        if (!ShallRun() && session->IsOfTheConnection(*failure))
            return {EVerdict::Stopped};
        const bool bSilent = IsSilent(*session, target);
        Tell(*failure, mail, DisplayName(target));
        m_bRefused |= failure->IsRefusal();
        if (failure->IsRefusal())
            EndRefused(*session, failure->bTryNextTarget && !(targets.IsEmpty() && late.IsEmpty()));
        else if (target.mode == ETLSMode::Opportunistic)
            (bSilent ? late : targets).Append(WithoutTls(target));
        attempt = failure->Outcome();
        if (!failure->bTryNextTarget)
            break;
    }
    if (attempt.verdict == EVerdict::ConnectionFailed && !ShallRun()) // the stop broke it
        attempt.verdict = EVerdict::Stopped;
    return attempt;
}

/// In one session or, where what fails is the connection's, in another over a new one; the last session stays, with
/// what failed in it.
std::optional<SDeliveryFailure> CSMTPSendThread::TryTarget(SPreparedMail& mail, const CSmartHost& target,
                                                           Platform::CWaitLimit& limit,
                                                           std::optional<CSMTPSession>& session)
{
    const bool bOpen = ObtainsConnectionTo(target); // not always the one over which the mail was told of
    mail.bAhead = mail.bAhead && bOpen && m_pConnection->client.Ahead() > 0;
    for (unsigned nSessions = MOST_SESSIONS;; --nSessions) {
        const bool bShared = m_pConnection != nullptr;
        session.emplace(std::move(m_pConnection), m_settings, mail, limit);
        if (m_bRefused) // other mails may still be welcome there, which comes first (RFC 5321 5.1)
            session->KeepFromOthers();
        std::optional<SDeliveryFailure> failure = FailureOf([&] {
            session->Deliver(target);
            LeadNext(*session);
            session->AwaitVerdict();
        });
        if (!failure || !ShallRun())
            return failure;
        session->NoteOutOfStep(*failure);
        if (!session->IsOfTheConnection(*failure) || nSessions == 1)
            return failure;
        if (bShared && !std::exchange(m_bBegunAnew, true)) // what it has cost is not this mail's time
            limit = AttemptLimit();
    }
}

bool CSMTPSendThread::MayWait() const { return m_pWaiting && m_pWaiting->Takes() && ShallRun(); }

/// Over the one that is open or, when there is none, one that waits.
bool CSMTPSendThread::ObtainsConnectionTo(const CSmartHost& target)
{
    if (!m_pConnection && MayWait())
        m_pConnection = m_pWaiting->TakeTo(target);
    return m_pConnection && m_pConnection->Reaches(target);
}

/// The one that a connection is open to. One to none of them is of no use to the mail.
void CSMTPSendThread::PutReachedFirst(CTargetList& targets)
{
    const auto FindReached = [&] {
        CTargetList::CIterator it = targets.begin();
        while (it != targets.end() && !ObtainsConnectionTo(*it))
            ++it;
        return it;
    };
    CTargetList::CIterator reached = FindReached();
    if (m_pConnection && reached == targets.end()) {
        EndConnection();
        reached = FindReached();
    }
    if (reached == targets.end())
        return;
    CSmartHost target = *reached;
    targets.Remove(reached);
    targets.Prepend(std::move(target));
}

/// What goes wrong with the next mail is told when its turn has come.
void CSMTPSendThread::LeadNext(CSMTPSession& session)
{
    if (!session.MayLead())
        return;
    FailureOf([&] {
        SPreparedMail* const pNext = ReadyNext();
        if (pNext == nullptr)
            return;
        pNext->bAhead = true;
        session.SendAhead(*pNext);
    });
}

/// Whatever the server makes of it, the outcome is known. Nothing waits while a mail goes on to its other targets.
void CSMTPSendThread::EndRefused(CSMTPSession& session, bool bOthersFollow)
{
    FailureOf([&] {
        const bool bGoOn = (!bOthersFollow || MayWait()) && session.MayGoOn();
        session.HearTheRest();
        if (bGoOn)
            m_pConnection = session.TakeConnection();
        else
            session.Quit();
    });
    if (bOthersFollow)
        EndConnection();
}

void CSMTPSendThread::EndConnection()
{
    std::unique_ptr<CSMTPConnection> pConnection = std::move(m_pConnection);
    if (!pConnection)
        return;
    const bool bInMail = pConnection->client.Ahead() > 0;
    if (!bInMail && MayWait()) {
        m_pWaiting->Bring(std::move(pConnection));
        return;
    }
    pConnection->client.SetLimit(Platform::CWaitLimit().For(LONGEST_PARTING));
    if (!bInMail) // else it is just closed
        FailureOf([&] { pConnection->Quit(); });
}

/// Remembers it for the mails to come. A stop is nobody's silence.
bool CSMTPSendThread::IsSilent(const CSMTPSession& session, const CSmartHost& target) const
{
    const bool bSilent = session.WasSilent() && ShallRun();
    if (session.HasAnswered())
        SilentAddresses().Forget(PlaceOf(target));
    else if (bSilent)
        SilentAddresses().Note(PlaceOf(target), MILLIS_PER_SECOND * m_settings.dwSilenceKept);
    return bSilent;
}

/// To the error report, the log and standard error.
void CSMTPSendThread::Tell(const SDeliveryFailure& failure, const SPreparedMail& mail,
                           const Bex::CSimpleString& strHost) const
{
    WriteErrorReport(failure, m_strMailPath, strHost, mail.strRecipient,
                     Platform::CWaitLimit(&StopEvent().Waitable()).For(LONGEST_NAMING));
    const Bex::CSimpleString strLine = failure.LogLine(mail.strMessageID);
    Bex::LogError(Bex::MainLog(), "%s", strLine.Text());
    WriteErrorLine(strLine);
}

/// The mail is the server's: nothing that fails from here on makes it undelivered.
SAttempt CSMTPSendThread::Delivered(CSMTPSession& session, const CSmartHost& target, const SPreparedMail& mail)
{
    SAttempt attempt{EVerdict::Delivered};
    try {
        FinishDelivered(session, mail, attempt.file);
        SilentAddresses().Forget(PlaceOf(target));
    } catch (const Bex::CAbandonment&) {
        throw;
    } catch (...) {
        Bex::LogWarning(Bex::MainLog(), "exception after successful delivery of \"%s\"", m_strMailPath.Text());
    }
    return attempt;
}

void CSMTPSendThread::FinishDelivered(CSMTPSession& session, const SPreparedMail& mail, EMailFile& file)
{
    Bex::LogInfo(Bex::MainLog(), "mail <%s> from <%s> to <%s> delivered, %u bytes sent", mail.strMessageID.Text(),
                 mail.strSender.Text(), mail.strRecipient.Text(), mail.payload.Size());
    RemoveFiles(mail, file);
    if (session.MayGoOn() && (TakesNext() || MayWait() || !ShallRun())) { // a session says no QUIT after a stop
        m_pConnection = session.TakeConnection();
        return;
    }
    if (const auto failure = FailureOf([&] { session.Quit(); })) {
        const auto strText =
            Bex::CSimpleString::Formatted("%s after successful delivery: %s", failure->Name(), failure->strText.Text());
        Bex::LogWarning(Bex::MainLog(), "%s", strText.Text());
        WriteErrorLine(strText);
    }
}

void CSMTPSendThread::RemoveFiles(const SPreparedMail& mail, EMailFile& file) const
{
    WriteConsole(stdout, Bex::CSimpleString::Formatted("--> Removing file \"%s\"...\n", m_strMailPath.Text()));
    Bex::LogInfo(Bex::MainLog(), "removing file \"%s\"", m_strMailPath.Text());
    file = RemoveMail(mail);
    RemoveReport();
}

void CSMTPSendThread::RemoveReport() const
{
    try {
        Bex::CFile::Remove(ErrorReportPath(m_strMailPath));
    } catch (const Bex::CFileException&) { // most mails never failed
    }
}

EMailFile CSMTPSendThread::RemoveMail(const SPreparedMail& mail) const
{
    try {
        if (!mail.pFile->RemoveIfStill())
            Bex::LogWarning(Bex::MainLog(), "file \"%s\" was replaced while it was sent and stays",
                            m_strMailPath.Text());
        return EMailFile::Gone;
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__,
                       Bex::CSimpleString::Formatted("could not remove file \"%s\"", m_strMailPath.Text()).Text());
        return exception.LibError() == Platform::LIB_NO_ENTRY ? EMailFile::Gone : EMailFile::Stays;
    }
}
