#include "SMTPc/CSMTPSendThread.h"

#include "Bex/CFileException.h"
#include "Bex/CSecurityException.h"
#include "Bex/CSocketException.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Common/IsValidAddress.h"
#include "Common/TargetResolution.h"
#include "Platform/Errors.h"
#include "SMTPc/CSMTPException.h"
#include "SMTPc/CSMTPSession.h"
#include "SMTPc/ConsoleText.h"
#include "SMTPc/ErrorReport.h"

namespace {

constexpr char SOURCE_FILE[] = "SMTPc/SMTPSend";

Bex::CSimpleString WithLowerDomain(const Bex::CSimpleString& strAddress)
{
    if (!strAddress.Contains('@'))
        return strAddress;
    return Bex::CSimpleString::Formatted("%s@%s", strAddress.BeforeFirst('@').Text(),
                                         strAddress.AfterFirst('@').Lowered().Text());
}

void CheckAddresses(const SPreparedMail& mail)
{
    if (!mail.strSender.IsEmpty() && !IsValidAddress(mail.strSender))
        throw CSMTPPermanentException(
            SOURCE_FILE, __LINE__,
            Bex::CSimpleString::Formatted("sender address <%s> has bad format", mail.strSender.Text()));
    if (!IsValidAddress(mail.strRecipient))
        throw CSMTPPermanentException(
            SOURCE_FILE, __LINE__,
            Bex::CSimpleString::Formatted("recipient address <%s> has bad format", mail.strRecipient.Text()));
}

bool IsBackupDomain(const Bex::CSimpleString& strDomain)
{
    CDomains& domains = BackupDomains();
    Bex::CScopedLock lock(domains.LockObject());
    return domains.FindDomain(strDomain) != nullptr;
}

void ResolveDomain(const Bex::CSimpleString& strDomain, CTargetList& targets)
{
    const char* const pszDomain = strDomain.Text();
    switch (ResolveTargets(targets, strDomain, IsBackupDomain(strDomain))) {
    case EResolution::RetryLater:
        throw CSMTPTemporaryException(
            SOURCE_FILE, __LINE__,
            Bex::CSimpleString::Formatted("MX resolution for domain '%s' failed, please retry later", pszDomain));
    case EResolution::NullMX:
        throw CSMTPPermanentException(
            SOURCE_FILE, __LINE__,
            Bex::CSimpleString::Formatted("domain '%s' is not used for mail communication (NULL MX)", pszDomain));
    default:
        break;
    }
    if (targets.IsEmpty())
        throw CSMTPTemporaryException(
            SOURCE_FILE, __LINE__,
            Bex::CSimpleString::Formatted("MX resolution for domain '%s' failed, no valid MX returned", pszDomain));
}

Bex::CSimpleString DisplayName(const CSmartHost& target)
{
    if (!target.strHostName.IsEmpty() || target.endPoint.Address() == nullptr)
        return target.strHostName;
    return target.endPoint.Address()->Text();
}

/// One line to the error log and to standard error.
void TellFailure(const Bex::CSimpleString& strText)
{
    Bex::LogError(Bex::MainLog(), "%s", strText.Text());
    WriteConsole(stderr, Bex::CSimpleString::Formatted("%s\n", strText.Text()));
}

void TellFailure(const SPreparedMail& mail, const char* pszKind, const Bex::CException& exception, const char* pszText)
{
    TellFailure(Bex::CSimpleString::Formatted("mail <%s> failed with %s error: %s (in File %s at Line %d)",
                                              mail.strMessageID.Text(), pszKind, pszText, exception.SourceFile(),
                                              exception.Line()));
}

void TellFailure(const SPreparedMail& mail, const char* pszKind, const CSMTPException& exception)
{
    Bex::CSimpleString strLast = exception.LastLine();
    strLast.TrimRight();
    TellFailure(Bex::CSimpleString::Formatted("mail <%s> failed with %s SMTP error: %s", mail.strMessageID.Text(),
                                              pszKind, strLast.Text()));
}

void TellAfterDelivery(const char* pszKind, const char* pszText)
{
    const auto strText = Bex::CSimpleString::Formatted("%s error after successful delivery: %s", pszKind, pszText);
    Bex::LogWarning(Bex::MainLog(), "%s", strText.Text());
    WriteConsole(stderr, Bex::CSimpleString::Formatted("%s\n", strText.Text()));
}

/// After a refusal: whatever the server makes of it, the outcome of the mail is known.
void QuitAnyway(CSMTPSession& session)
{
    try {
        session.Quit();
    } catch (const Bex::CSocketException&) { // the session's end closes the connection
    } catch (const Bex::CSecurityException&) {
    }
}

} // namespace

CSMTPSendThread::CSMTPSendThread(const SDeliverySettings& settings) : m_settings(settings) {}

void CSMTPSendThread::SendMail()
{
    SPreparedMail prepared;
    if (LoadAndPrepare(prepared))
        SendPrepared(prepared);
    else
        m_iResult = DELIVERY_NOT_PREPARED;
}

void CSMTPSendThread::SendMail(CMail& mail)
{
    SPreparedMail prepared;
    if (PrepareMessage(mail, prepared))
        SendPrepared(prepared);
    else
        m_iResult = DELIVERY_NOT_PREPARED;
}

void CSMTPSendThread::SendPrepared(SPreparedMail& mail)
{
    m_bMailKept = false;
    if (m_settings.bLowerRecipientDomain)
        mail.strRecipient = WithLowerDomain(mail.strRecipient);
    CTargetList targets(false);
    if (!FindTargets(mail, targets))
        return;
    for (const CSmartHost& target : targets) { // which grows while it is walked
        if (!ShallRun()) {
            m_iResult = DELIVERY_STOPPED;
            return;
        }
        if (!TryTarget(target, mail, targets))
            return;
    }
}

/// False, with report and result, when the mail cannot go anywhere.
bool CSMTPSendThread::FindTargets(const SPreparedMail& mail, CTargetList& targets)
{
    try {
        CheckAddresses(mail);
        const Bex::CSimpleString strDomain = mail.strRecipient.AfterFirst('@');
        SmartHosts().FindSmartHosts(mail.strSender.AfterFirst('@'), strDomain, targets);
        if (targets.IsEmpty())
            ResolveDomain(strDomain, targets);
        return true;
    } catch (const CSMTPTemporaryException& exception) {
        WriteErrorReport(exception, m_strMailPath, {}, mail.strRecipient);
        TellFailure(mail, "temporary", exception);
        m_iResult = DELIVERY_TEMPORARY;
    } catch (const CSMTPPermanentException& exception) {
        WriteErrorReport(exception, m_strMailPath, {}, mail.strRecipient);
        TellFailure(mail, "permanent", exception);
        m_iResult = DELIVERY_PERMANENT;
    }
    return false;
}

/// True when the next target is to be tried; a second try without TLS is put behind the last one.
bool CSMTPSendThread::TryTarget(const CSmartHost& target, const SPreparedMail& mail, CTargetList& targets)
{
    m_iResult = DELIVERED;
    const Bex::CSimpleString strHost = DisplayName(target);
    CSMTPSession session(m_client, m_settings, mail);
    try {
        session.Deliver(target);
        FinishDelivered(session, mail);
        return false;
    } catch (const Bex::CSocketException& exception) {
        WriteErrorReport(exception, m_strMailPath, strHost, mail.strRecipient);
        TellFailure(mail, "socket", exception, exception.Text());
        m_iResult = DELIVERY_CONNECTION_FAILED;
    } catch (const Bex::CSecurityException& exception) {
        WriteErrorReport(exception, m_strMailPath, strHost, mail.strRecipient);
        TellFailure(mail, "security", exception, exception.Text());
        m_iResult = DELIVERY_CONNECTION_FAILED;
    } catch (const CSMTPTemporaryException& exception) {
        WriteErrorReport(exception, m_strMailPath, strHost, mail.strRecipient);
        TellFailure(mail, "temporary", exception);
        QuitAnyway(session);
        m_iResult = DELIVERY_TEMPORARY;
        return true;
    } catch (const CSMTPPermanentException& exception) {
        WriteErrorReport(exception, m_strMailPath, strHost, mail.strRecipient);
        TellFailure(mail, "permanent", exception);
        QuitAnyway(session);
        m_iResult = DELIVERY_PERMANENT;
        return false;
    }
    if (target.mode == ETLSMode::Opportunistic) {
        CSmartHost withoutTls = target;
        withoutTls.mode = ETLSMode::None;
        targets.Append(std::move(withoutTls));
    }
    return true;
}

/// The mail is the server's: nothing that fails from here on makes it undelivered.
void CSMTPSendThread::FinishDelivered(CSMTPSession& session, const SPreparedMail& mail)
{
    Bex::LogInfo(Bex::MainLog(), "mail <%s> from <%s> to <%s> delivered, %u bytes sent", mail.strMessageID.Text(),
                 mail.strSender.Text(), mail.strRecipient.Text(), mail.payload.Size());
    if (m_bRemoveAfterDelivery)
        RemoveFiles();
    try {
        session.Quit();
    } catch (const Bex::CSocketException& exception) {
        TellAfterDelivery("socket", exception.Text());
    } catch (const Bex::CSecurityException& exception) {
        TellAfterDelivery("security", exception.Text());
    }
}

void CSMTPSendThread::RemoveFiles()
{
    WriteConsole(stdout, Bex::CSimpleString::Formatted("--> Removing file \"%s\"...\n", m_strMailPath.Text()));
    Bex::LogInfo(Bex::MainLog(), "removing file \"%s\"", m_strMailPath.Text());
    RemoveMail();
    try {
        Bex::CFile::Remove(ErrorReportPath(m_strMailPath));
    } catch (const Bex::CFileException&) { // most mails never failed
    }
}

void CSMTPSendThread::RemoveMail()
{
    Platform::SFileIdentity identity;
    if (Platform::IdentityOf(m_strMailPath.Text(), identity) && identity != m_identity) {
        Bex::LogWarning(Bex::MainLog(), "file \"%s\" was replaced while it was sent and stays", m_strMailPath.Text());
        return;
    }
    try {
        Bex::CFile::Remove(m_strMailPath);
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__,
                       Bex::CSimpleString::Formatted("could not remove file \"%s\"", m_strMailPath.Text()).Text());
        m_bMailKept = exception.LibError() != Platform::LIB_NO_ENTRY;
    }
}
