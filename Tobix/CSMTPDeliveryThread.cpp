#include "Tobix/CSMTPDeliveryThread.h"

#include "Bex/CActivity.h"
#include "Bex/CFileException.h"
#include "Bex/CLogContext.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Common/Statistics.h"
#include "Platform/Clock.h"
#include "Platform/FileSystem.h"
#include "Tobix/Bounce.h"
#include "Tobix/MailLog.h"
#include "Tobix/ServicePause.h"

#include <exception>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/SMTPDeliveryThread";
constexpr unsigned IDLE_MILLIS = 1000;
constexpr int64_t SECONDS_PER_MINUTE = 60;
constexpr int64_t NANOSECONDS = 1'000'000'000;

char LocalityLetter(const Bex::CSimpleString& strAddress) { return IsLocalAddress(strAddress) ? 'L' : 'R'; }

int Number(const SAttempt& attempt) { return static_cast<int>(attempt.verdict); }

} // namespace

CSMTPDeliveryThread::CSMTPDeliveryThread(const SDeliverySettings& settings, std::shared_ptr<COutgoingFiles> pFiles,
                                         const Bex::CSimpleString& strErrorDirectory,
                                         const Bex::CSimpleString& strOutgoingDirectory,
                                         std::shared_ptr<CWaitingConnections> pWaiting)
    : CSMTPSendThread(settings, std::move(pWaiting)), m_pFiles(std::move(pFiles)),
      m_strErrorDirectory(strErrorDirectory), m_strOutgoingDirectory(strOutgoingDirectory)
{}

void CSMTPDeliveryThread::Body()
{
    if (m_pFiles == nullptr) {
        Bex::LogError(Bex::MainLog(), "RemoteAgent-pointer was NULL at %s:%d", SOURCE_FILE, __LINE__);
        m_iResult = 0;
        return;
    }
    // The other settings are those of the thread's making.
    m_settings.dwTimeout = SDeliverySettings::FromConfiguration().dwTimeout;
    Bex::LogNotice(Bex::MainLog(), "remote delivery thread (id %04X) started", Id());
    while (ShallRun()) {
        if (ServiceIsPaused()) {
            EndConnection();
            LetGoOfNext();
            WaitWhileServiceIsPaused(StopEvent());
        } else if (!TakeFile()) {
            Bex::WaitForAny({&StopEvent().Waitable(), &m_pFiles->WorkWaitable()}, IDLE_MILLIS);
        } else if (IsDomainsTurn(m_strFileName)) {
            m_strRoute = m_pFiles->RouteOf(m_strFileName);
            DeliverGuarded();
            GoOnOrEnd();
        } else { // which may have been the next mail of a connection
            EndConnection();
            m_pReady.reset();
        }
    }
    EndConnection();
    LetGoOfNext();
    Bex::LogNotice(Bex::MainLog(), "remote delivery thread (id %04X) stopped", Id());
}

/// Whatever one mail raises, the thread goes on with the next one. A mail that a server has accepted must not be sent
/// again; any other is.
void CSMTPDeliveryThread::DeliverGuarded()
{
    const Bex::CActivity::CStep step("delivers %s", m_strFileName.Text());
    const std::string strOrigin = m_pFiles->OriginOf(m_strFileName);
    const Bex::CLogContext origin(strOrigin), context(m_strFileName, {});
    SAttempt attempt{EVerdict::Temporary};
    try {
        if (!WasSent())
            DeliverFile(attempt);
        return;
    } catch (const Bex::CException& exception) {
        MailLog::DeliveryRaised(m_strMailPath, exception);
    } catch (const std::exception& exception) {
        MailLog::DeliveryRaised(m_strMailPath, exception);
    }
    if (attempt.verdict == EVerdict::Delivered)
        m_pFiles->SetAside(m_strFileName);
    else
        m_pFiles->RetryLater(m_strFileName);
}

void CSMTPDeliveryThread::MoveToError(CHeldMailFile& file)
{
    Bex::LogError(Bex::MainLog(), "sending mail '%s' failed", m_strFileName.Text());
    Statistics::Count(Statistics::ECount::RemoteFailed);
    const Bex::CSimpleString strTarget = Bex::PathBelow(m_strErrorDirectory, m_strFileName);
    try {
        if (!file.MoveIfStill(strTarget)) {
            ReleaseUnlessStill(file);
            return;
        }
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__,
                       Bex::CSimpleString::Formatted("could not rename file \"%s\" to \"%s\"", m_strMailPath.Text(),
                                                     strTarget.Text())
                           .Text());
        ReleaseUnlessStill(file);
        return;
    }
    RemoveReport();
    ReleaseName();
}

/// The name stays in progress for as long as the file stands there that must not be tried again.
void CSMTPDeliveryThread::ReleaseUnlessStill(CHeldMailFile& file)
{
    const bool bReplaced = file.IsReplaced();
    if (bReplaced)
        Bex::LogWarning(Bex::MainLog(), "file \"%s\" was replaced while it was sent and stays", m_strMailPath.Text());
    if (!bReplaced && Platform::KindOf(m_strMailPath.Text()) != Platform::EPathKind::Missing) {
        m_pFiles->SetAside(m_strFileName, COutgoingFiles::EAside::NotDisposedOf);
        return;
    }
    RemoveReport(); // of a mail that is no more
    ReleaseName();
}

/// Another mail may have got the name meanwhile: no scan has taken it, and no change may tell of it any more.
void CSMTPDeliveryThread::ReleaseName()
{
    m_pFiles->FinishDelivery(m_strFileName);
    if (Platform::FileSize(m_strMailPath.Text()) > 0)
        m_pFiles->AddPending(m_strFileName);
}

bool CSMTPDeliveryThread::IsOverdue(int64_t iAgeSeconds, int64_t iSecondsKnown, int iMinutes)
{
    return (iAgeSeconds < 0 ? iSecondsKnown : iAgeSeconds) > iMinutes * SECONDS_PER_MINUTE;
}

void CSMTPDeliveryThread::DeliverFile(SAttempt& attempt)
{
    const std::unique_ptr<SLoadedMail> pReady = std::move(m_pReady);
    SLoadedMail fresh;
    SLoadedMail& loaded = pReady ? *pReady : fresh;
    SLoadResult load;
    const auto failure = FailureOf([&] {
        if (!pReady)
            load = LoadForDelivery(loaded);
    });
    const Bex::CSimpleString strMessageID = loaded.mail.MessageID(), strSender = loaded.mail.EnvelopeSender(),
                             strRecipient = RecipientOf(loaded.mail); // the attempt may change them
    const Bex::CLogContext context({}, strMessageID, strSender, strRecipient);
    SFileState state;
    bool bSettled = ReadFileState(state);
    if (bSettled) {
        if (failure)
            attempt = Failed(*failure, loaded.mail);
        else if (load.result == ELoadResult::Busy) // of which nothing is sent in this pass
            attempt = {.verdict = EVerdict::FileBusy, .error = load.error};
        else
            attempt = load ? AttemptOrReturn(loaded) : NotLoaded(load);
        bSettled = Settle(attempt, loaded, state);
    }
    if (!bSettled)
        MoveToError(loaded.file);
}

SAttempt CSMTPDeliveryThread::AttemptOrReturn(SLoadedMail& loaded)
{
    if (m_pFiles->IsToReturn(m_strFileName)) {
        constexpr char WHY[] = "returned by the administrator";
        SDeliveryFailure failure{.kind = SDeliveryFailure::EKind::Permanent,
                                 .strText = WHY,
                                 .verdict = EVerdict::Permanent,
                                 .bTryNextTarget = false};
        failure.lines.Append(WHY);
        return Failed(failure, loaded.mail);
    }
    const uint64_t nStarted = Platform::TickMicros();
    const SAttempt attempt = Attempt(loaded);
    Statistics::Took(Statistics::EDuration::Attempt, Platform::TickMicros() - nStarted);
    return attempt;
}

SLoadResult CSMTPDeliveryThread::LoadForDelivery(SLoadedMail& loaded) const
{
    const SLoadResult load = LoadMail(m_strMailPath, loaded);
    if (load.result == ELoadResult::Busy) {
        MailLog::Busy(m_strMailPath, load.error.iLibError == Platform::LIB_NO_MEMORY);
    } else if (load.result == ELoadResult::Broken) {
        Bex::LogError(Bex::MainLog(), "error in %s:%d, errno=%d file=\"%s\"\n", SOURCE_FILE, __LINE__,
                      load.error.iLibError, m_strMailPath.Text());
    }
    return load;
}

bool CSMTPDeliveryThread::ReadFileState(SFileState& state) const
{
    Platform::SFileTimes times;
    state.iSize = Platform::FileSize(m_strMailPath.Text());
    if (state.iSize < 0 || !Platform::GetFileTimes(m_strMailPath.Text(), times)) {
        const Platform::SError error = Platform::LastError();
        Bex::LogError(Bex::MainLog(),
                      "Delivering \"%s\" failed, could not determine file state (Bex::CFile::GetStatus failed: "
                      "liberror=%d, syserror=%d), please report this to marlune!",
                      m_strMailPath.Text(), error.iLibError, static_cast<int>(error.dwSysError));
        return false;
    }
    const int64_t iCreated = times.iCreated / NANOSECONDS;
    state.iCreated = iCreated != 0 ? iCreated : times.iModified / NANOSECONDS;
    return true;
}

bool CSMTPDeliveryThread::Settle(const SAttempt& attempt, SLoadedMail& loaded, const SFileState& state)
{
    switch (attempt.verdict) {
    case EVerdict::Delivered:
        return Delivered(attempt, loaded.mail, state);
    case EVerdict::FileBusy:
    case EVerdict::ConnectionFailed:
    case EVerdict::Temporary:
        return FailedTemporarily(attempt, loaded.file, state);
    case EVerdict::Permanent:
        return FailedPermanently(attempt, loaded.file);
    case EVerdict::NotPrepared:
        return Misconfigured(attempt);
    case EVerdict::Stopped:
        return Aborted();
    }
    return false; // there is no other
}

bool CSMTPDeliveryThread::Delivered(const SAttempt& attempt, const CMail& mail, const SFileState& state)
{
    Statistics::Count(Statistics::ECount::RemoteDelivered);
    if (attempt.file == EMailFile::Gone)
        ReleaseName();
    else // it must not be sent again
        KeepSent();
    Bex::LogNotice(Bex::MainLog(), "successfully delivered mail from <%s> to <%s> (%llu bytes)",
                   mail.EnvelopeSender().Text(), mail.FirstRecipient().Text(),
                   static_cast<unsigned long long>(state.iSize));
    if (Config().GetFlag(Keys::TRAFFIC_LOGGING))
        LogTraffic(mail, state.iSize);
    return true;
}

/// A mail forwarded on behalf of a local user is that user's.
void CSMTPDeliveryThread::LogTraffic(const CMail& mail, int64_t iSize)
{
    const Bex::CSimpleString& strSender = mail.ResentFor().IsEmpty() ? mail.EnvelopeSender() : mail.ResentFor();
    const Bex::CSimpleString strRecipient = mail.FirstRecipient();
    Bex::LogInfo(Bex::TrafficLog(), "Traffic: %c, %s, %c, %s, %llu", LocalityLetter(strSender), strSender.Text(),
                 LocalityLetter(strRecipient), strRecipient.Text(), static_cast<unsigned long long>(iSize));
}

/// Of a file that somebody else holds nothing is known, not even whether it is being sent: it is never given up. Nor is
/// a mail that met a shortage, before it has been tried.
bool CSMTPDeliveryThread::FailedTemporarily(const SAttempt& attempt, CHeldMailFile& file, const SFileState& state)
{
    const int iMinutes = Config().GetInt(Keys::AUTO_TRANS_TIME);
    if (!Platform::IsBusy(attempt.error) &&
        IsOverdue(Platform::NowSeconds() - state.iCreated, m_pFiles->SecondsKnown(m_strFileName), iMinutes)) {
        Bex::LogError(Bex::MainLog(), "Delivering \"%s\" failed for %d minutes with error %d. I am giving up!",
                      m_strMailPath.Text(), iMinutes, Number(attempt));
        Statistics::Count(Statistics::ECount::BouncedTemporary);
        return GiveUp(file);
    }
    Statistics::Count(Statistics::ECount::RemoteDeferred);
    const bool bReplaced = attempt.verdict != EVerdict::FileBusy && file.IsReplaced();
    if (bReplaced || Platform::KindOf(m_strMailPath.Text()) == Platform::EPathKind::Missing)
        ReleaseUnlessStill(file);
    else
        m_pFiles->RetryLater(m_strFileName);
    Bex::LogError(Bex::MainLog(), "Delivering \"%s\" temporarily failed with error %d. I will retry later!",
                  m_strMailPath.Text(), Number(attempt));
    return true;
}

bool CSMTPDeliveryThread::FailedPermanently(const SAttempt& attempt, CHeldMailFile& file)
{
    Bex::LogError(Bex::MainLog(), "Delivering \"%s\" permanently failed with error %d. I am giving up!",
                  m_strMailPath.Text(), Number(attempt));
    Statistics::Count(Statistics::ECount::BouncedPermanent);
    return GiveUp(file);
}

bool CSMTPDeliveryThread::GiveUp(CHeldMailFile& file)
{
    const bool bDisposed = Bounce(m_strMailPath, file, m_strErrorDirectory);
    if (bDisposed)
        ReleaseUnlessStill(file);
    return bDisposed;
}

bool CSMTPDeliveryThread::Misconfigured(const SAttempt& attempt) const
{
    Bex::LogError(Bex::MainLog(),
                  "Delivering \"%s\" failed with error %d, errno %d, winerr %d. Maybe malconfigured? Don't know what "
                  "to do!",
                  m_strMailPath.Text(), Number(attempt), attempt.error.iLibError,
                  static_cast<int>(attempt.error.dwSysError));
    return false;
}

bool CSMTPDeliveryThread::Aborted() const
{
    Bex::LogError(Bex::MainLog(), "Delivering \"%s\" aborted, thread has been shut down.", m_strMailPath.Text());
    return true;
}
