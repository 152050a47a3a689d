// How CSMTPSendThread makes a mail file ready for its sessions.

#include "Bex/TextFunctions.h"
#include "Common/NormalizeAddress.h"
#include "SMTPc/CSMTPSendThread.h"
#include "SMTPc/ConsoleText.h"
#include "SMTPc/FindTargets.h"
#include "SMTPc/TransferForm.h"

namespace {

constexpr std::string_view SENDER_FIELD = "Sender:";

/// What stands in angle brackets before the comma that ends it, or all of it. Nothing within quotes counts for one.
std::string_view FirstAddress(std::string_view list)
{
    constexpr size_t NONE = std::string_view::npos;
    size_t nOpening = NONE;
    bool bQuoted = false;
    for (size_t i = 0; i < list.size(); ++i) {
        const char c = list[i];
        if (bQuoted && c == '\\')
            ++i;
        else if (c == '"')
            bQuoted = !bQuoted;
        else if (!bQuoted && c == '<' && nOpening == NONE)
            nOpening = i;
        else if (!bQuoted && c == '>' && nOpening != NONE)
            return list.substr(nOpening + 1, i - nOpening - 1);
        else if (!bQuoted && c == ',' && nOpening == NONE)
            return Bex::TrimmedView(list.substr(0, i));
    }
    return Bex::TrimmedView(list);
}

Bex::CSimpleString Recipient(const CMail& mail)
{
    Bex::CSimpleString strRecipient = mail.FirstRecipient();
    if (!strRecipient.IsEmpty())
        return strRecipient;
    const std::string_view to = FirstAddress(mail.To());
    return to.size() > CMail::LONGEST_ADDRESS ? std::string_view() : to;
}

/// Puts the address that stands in for the sender into the mail's own fields, too.
void Masquerade(CMail& mail, Bex::CSimpleString& strSender)
{
    const std::optional<Bex::CSimpleString> strMask = MaskOf(strSender);
    if (!strMask)
        return;
    strSender = *strMask;
    if (!mail.FromAddress().IsEmpty())
        mail.SetFromAddress(strSender);
    Bex::CScopedLock lock(mail.ExtraHeaderLines().LockObject());
    for (Bex::CSimpleString& strLine : mail.ExtraHeaderLines()) {
        if (Bex::StartsWithNoCase(strLine, SENDER_FIELD))
            strLine = Bex::CSimpleString::Formatted("Sender: <%s>", strSender.Text());
    }
}

} // namespace

SLoadResult CSMTPSendThread::LoadMail(const Bex::CSimpleString& strPath, SLoadedMail& loaded)
{
    const SLoadResult result = loaded.mail.Load(strPath, loaded.file);
    if (result && !loaded.file.LetOthersRead()) // who writes a report, and the responder
        return SLoadResult::InUse();
    return result;
}

Bex::CSimpleString CSMTPSendThread::RecipientOf(const CMail& mail) const
{
    return m_settings.bLowerRecipientDomain ? WithLowerDomain(Recipient(mail)) : Recipient(mail);
}

bool CSMTPSendThread::PrepareMessage(SLoadedMail& loaded, SPreparedMail& prepared) const
{
    CMail& mail = loaded.mail;
    prepared.strSender = mail.EnvelopeSender();
    prepared.strRecipient = RecipientOf(mail);
    if (prepared.strRecipient.IsEmpty()) {
        WriteConsole(stderr, "error: no receiver specified\n");
        return false;
    }
    Masquerade(mail, prepared.strSender);
    if (mail.AuthenticatedAs().Length() <= CMail::LONGEST_ADDRESS)
        prepared.strIdentity = mail.AuthenticatedAs();
    prepared.strMessageID = mail.MessageID();
    prepared.pFile = &loaded.file;
    prepared.payload = TransferForm(mail.GetHeaderText(EWriteMode::Plain), mail.TakeBody());
    return true;
}
