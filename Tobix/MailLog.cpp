#include "Tobix/MailLog.h"

#include "Bex/Log.h"

namespace MailLog {

void NotSaved(const CMail& mail, const Bex::CSimpleString& strPath, Platform::SError error, int iLine)
{
    Bex::LogError(Bex::MainLog(), "error in %s:%d, errno=%d file=\"%s\" msgid=<%s> from=<%s> to=<%s>\n",
                  "Tobix/LocalAgent", iLine, error.iLibError, strPath.Text(), mail.MessageID().Text(),
                  mail.EnvelopeSender().Text(), mail.FirstRecipient().Text());
}

void SavedInOutgoing(const CMail& mail)
{
    Bex::LogInfo(Bex::MainLog(), "mail <%s> from <%s> to <%s> saved in outgoing", mail.MessageID().Text(),
                 mail.EnvelopeSender().Text(), mail.FirstRecipient().Text());
}

void SavedInMailbox(const CMail& mail, const Bex::CSimpleString& strUser)
{
    Bex::LogInfo(Bex::MainLog(), "mail <%s> from <%s> to <%s> saved in <%s>", mail.MessageID().Text(),
                 mail.EnvelopeSender().Text(), mail.FirstRecipient().Text(), strUser.Text());
}

void Filtered(const CMail& mail, const Bex::CSimpleString& strReason)
{
    Bex::LogWarning(Bex::MainLog(), "mail <%s> from <%s> to <%s> has been filtered due to \"%s\"",
                    mail.MessageID().Text(), mail.EnvelopeSender().Text(), mail.FirstRecipient().Text(),
                    strReason.Text());
}

void RecipientNotValid(const CMail& mail)
{
    Bex::LogError(Bex::MainLog(), "recipient in mail <%s> from <%s> to <%s> not valid", mail.MessageID().Text(),
                  mail.EnvelopeSender().Text(), mail.FirstRecipient().Text());
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
    Bex::LogError(Bex::MainLog(), "delivering \"%s\": %s", strPath.Text(), szText);
}

} // namespace MailLog
