#include "Tobix/MailLog.h"

#include "Bex/CLogContext.h"
#include "Bex/Log.h"
#include "Common/ConfigKeys.h"
#include "Common/Statistics.h"

namespace MailLog {

namespace {

void LogRaised(const Bex::CSimpleString& strPath, const char* pszText)
{
    Bex::LogError(Bex::MainLog(), "delivering \"%s\": %s", strPath.Text(), pszText);
}

} // namespace

ERouted NotSaved(const CMail& mail, const Bex::CSimpleString& strPath, Platform::SError error, int iLine)
{
    if (Platform::IsBusy(error))
        return ERouted::Busy;
    Bex::LogError(Bex::MainLog(), "error in %s:%d, errno=%d file=\"%s\" msgid=<%s> from=<%s> to=<%s>\n",
                  "Tobix/LocalAgent", iLine, error.iLibError, strPath.Text(), mail.MessageID().Text(),
                  mail.EnvelopeSender().Text(), mail.FirstRecipient().Text());
    return ERouted::Failed;
}

void SavedInOutgoing(const CMail& mail)
{
    Statistics::Count(Statistics::ECount::OutgoingCopies);
    Bex::LogInfo(Bex::MainLog(), "mail <%s> from <%s> to <%s> saved in outgoing", mail.MessageID().Text(),
                 mail.EnvelopeSender().Text(), mail.FirstRecipient().Text());
}

void SavedInMailbox(const CMail& mail, const Bex::CSimpleString& strUser)
{
    Statistics::Count(Statistics::ECount::LocalCopies);
    Bex::LogInfo(Bex::MainLog(), "mail <%s> from <%s> to <%s> saved in <%s>", mail.MessageID().Text(),
                 mail.EnvelopeSender().Text(), mail.FirstRecipient().Text(), strUser.Text());
}

void Filtered(const CMail& mail, const Bex::CSimpleString& strReason)
{
    Statistics::Count(Statistics::ECount::Filtered);
    const Bex::CSimpleString strRecipient = mail.FirstRecipient();
    const Bex::CLogContext context({}, {}, {}, strRecipient);
    Bex::LogWarning(Bex::MainLog(), "mail <%s> from <%s> to <%s> has been filtered due to \"%s\"",
                    mail.MessageID().Text(), mail.EnvelopeSender().Text(), strRecipient.Text(), strReason.Text());
}

void RecipientNotValid(const CMail& mail)
{
    Bex::LogError(Bex::MainLog(), "recipient in mail <%s> from <%s> to <%s> not valid", mail.MessageID().Text(),
                  mail.EnvelopeSender().Text(), mail.FirstRecipient().Text());
}

void GoesRound(const CMail& mail, int iMostReceived)
{
    Bex::LogError(Bex::MainLog(),
                  "mail <%s> from <%s> to <%s> goes round: it has %u Received fields, more than %d (%s)",
                  mail.MessageID().Text(), mail.EnvelopeSender().Text(), mail.FirstRecipient().Text(),
                  mail.Received().Count(), iMostReceived, Keys::HEADER_RECEIVED_MAX.Name());
}

void InterceptionFailed(const CMail& mail)
{
    Bex::LogError(Bex::MainLog(), "intercepting mail <%s> from <%s> to <%s> failed", mail.MessageID().Text(),
                  mail.EnvelopeSender().Text(), mail.FirstRecipient().Text());
}

void DeliveryRaised(const Bex::CSimpleString& strPath, const Bex::CException& exception)
{
    char szText[1024];
    exception.GetMessage(szText, sizeof(szText));
    LogRaised(strPath, szText);
}

void DeliveryRaised(const Bex::CSimpleString& strPath, const std::exception& exception)
{
    LogRaised(strPath, exception.what());
}

void PlacedInError(const Bex::CSimpleString& strName)
{
    Statistics::Count(Statistics::ECount::LocalFailed);
    Bex::LogError(Bex::MainLog(), "delivering mail '%s' failed, placing in error", strName.Text());
}

void Busy(const Bex::CSimpleString& strPath, bool bNoMemory)
{
    if (bNoMemory)
        Bex::LogError(Bex::MainLog(), "insufficient memory in %s:%d", "Tobix/MailLog", __LINE__);
    Bex::LogWarning(Bex::MainLog(), "Looks like lock on file \"%s\" failed, retrying later!\n", strPath.Text());
}

} // namespace MailLog
