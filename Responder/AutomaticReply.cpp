#include "Responder/AutomaticReply.h"

#include "Bex/CFile.h"
#include "Bex/TextFunctions.h"
#include "Common/CToldMark.h"
#include "Common/Globals.h"
#include "Common/LocalHostIdentity.h"
#include "Common/NormalizeAddress.h"
#include "Responder/AnsweredMail.h"
#include "Responder/CAnswer.h"
#include "Responder/CReplyRecord.h"
#include "Responder/DaemonConfiguration.h"
#include "Responder/STemplate.h"

#include <stdexcept>
#include <string>

namespace {

constexpr int64_t MOST_TEMPLATE = 1 << 20; // bytes

STemplate LoadTemplate(const Bex::CSimpleString& strPath)
{
    Bex::CFile file;
    file.Open(strPath, Bex::CFile::modeRead | Bex::CFile::typeBinary);
    const int64_t iSize = file.Seek(0, Platform::ESeekFrom::End);
    if (iSize > MOST_TEMPLATE)
        throw std::runtime_error(std::string("the template \"") + strPath.Text() + "\" is too big");
    file.Seek(0, Platform::ESeekFrom::Begin);
    std::string strText(static_cast<size_t>(iSize), '\0');
    strText.resize(file.Read(strText.data(), static_cast<uint32_t>(iSize)));
    file.Close();
    return STemplate::Parse(strText);
}

/// The value of From: what the template says, else the mail's recipient, with a domain in any case.
Bex::CSimpleString Author(const STemplate& text, const CMail& mail)
{
    if (NormalizeAddress(text.strFrom).Contains('@'))
        return Bex::CSimpleString(text.strFrom);
    Bex::CSimpleString strAddress = mail.FirstRecipient();
    if (!IsUsableAddress(strAddress))
        throw std::runtime_error("neither the template nor the mail tells whom the reply is from");
    if (!strAddress.Contains('@'))
        (strAddress += "@") += LocalHostIdentity::Obtain().strHostName;
    return strAddress;
}

std::string ReplySubject(const STemplate& text, const CMail& mail)
{
    return !text.strSubject.empty() ? text.strSubject : "Auto: " + std::string(mail.Subject().View()); // RFC 3834 3.1.5
}

void Compose(CAnswer& answer, const STemplate& text, const CMail& mail)
{
    answer.SetFrom(Author(text, mail));
    answer.AddText("Subject", ReplySubject(text, mail));
    if (!text.strReplyTo.empty())
        answer.AddField("Reply-To", OneLine(text.strReplyTo, 500));
    if (!text.strOrganization.empty())
        answer.AddText("Organization", text.strOrganization);
    answer.AddField("X-Loop", answer.FromAddress());
    const bool bTyped = Bex::StartsWithNoCase(text.strContentType, "text/");
    const STextPart part = bTyped ? MakeTextPart(text.strBody, text.strContentType) : MakeTextPart(text.strBody);
    for (const std::string& strField : part.fields)
        answer.AddLine(strField);
    answer.SetText(part.strBody);
}

bool MayAnswer(const CMail& mail)
{
    const Bex::CSimpleString& strSender = mail.EnvelopeSender();
    return IsUsableAddress(strSender) && strSender.Contains('@') && !IsRobotSender(strSender) && !IsAutomatic(mail) &&
           IsAddressedToRecipient(mail) && !strSender.EqualsNoCase(mail.FirstRecipient()) &&
           !strSender.EqualsNoCase(NormalizeAddress(mail.ResentFor()));
}

/// Where hosts share the mailboxes they share who was answered. Whoever starts this program otherwise has no locks but
/// this host's.
void LearnWhereLocksAre()
{
    Bex::CSimpleString strPath;
    if (!LoadDaemonConfiguration(strPath))
        return;
    for (const Bex::CPathKey* const pKey : {&Keys::LOCK_DIR, &Keys::SPOOL_DIR}) { // from its directory
        if (const Bex::CSimpleString strValue = Config().GetPath(*pKey); !strValue.IsEmpty())
            Config().Set(pKey->Name(), Bex::JoinPath(DirectoryOf(strPath), strValue));
    }
}

const char* Reply(const SCommand& command, const CMail& mail)
{
    const STemplate text = LoadTemplate(command.strText);
    const std::string strSender(mail.EnvelopeSender().View());
    CAnswer answer(strSender, mail.MessageID(), mail.References());
    Compose(answer, text, mail);
    if (answer.FromAddress().EqualsNoCase(strSender))
        return "from itself, not to be answered";
    LearnWhereLocksAre();
    CReplyRecord record(Bex::CSimpleString(DirectoryOf(command.strMail)));
    if (!record.Add(strSender))
        return "answered today already";
    try {
        answer.Queue(command.strOutput);
    } catch (...) {
        record.TakeBack(strSender);
        throw;
    }
    return "reply queued";
}

} // namespace

const char* ReplyAutomatically(const SCommand& command)
{
    const CMail mail = LoadMail(command.strMail, true);
    const char* pszDone = MayAnswer(mail) ? Reply(command, mail) : "not to be answered";
    if (!command.bKeep)
        RemoveIfPresent(command.strMail);
    return pszDone;
}
