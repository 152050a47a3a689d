#include "Responder/Notification.h"

#include "Bex/CFile.h"
#include "Bex/TextFunctions.h"
#include "Common/CToldMark.h"
#include "Common/Globals.h"
#include "Common/LocalHostIdentity.h"
#include "Common/ReportText.h"
#include "Common/UniqueText.h"
#include "Platform/FileSystem.h"
#include "Responder/AnsweredMail.h"
#include "Responder/CAnswer.h"
#include "Responder/DaemonConfiguration.h"
#include "Responder/SFailure.h"

#include <stdexcept>
#include <string>

namespace {

constexpr int64_t SMALLEST_REPORT = 3;      // bytes; what is shorter is not a report
constexpr int64_t MOST_RETURNED = 32 << 20; // bytes of a mail; of a larger one the header is returned

/// The error report, or what stands in for it.
struct SReport
{
    CMail mail;
    std::string strText;
};

SReport LoadReport(const Bex::CSimpleString& strPath, const CMail& returned, const std::string& strHost)
{
    const bool bPresent = Platform::KindOf(strPath.Text()) == Platform::EPathKind::File &&
                          Platform::FileSize(strPath.Text()) >= SMALLEST_REPORT;
    SReport report{.mail = bPresent ? LoadMail(strPath, false) : CMail(), .strText = {}};
    if (bPresent)
        report.strText = report.mail.Body().View();
    else
        report.strText = std::string(ReportText::PERMANENT_ERRORS) + "\r\n" + returned.FirstRecipient().Text() + "\r\n";
    if (report.mail.FromAddress().IsEmpty()) {
        const Bex::CSimpleString strPostmaster = Config().GetString(Keys::POSTMASTER);
        const std::string strAddress = strPostmaster.IsEmpty() ? "postmaster@" + strHost : strPostmaster.Text();
        report.mail.SetFrom(Bex::CSimpleString::Formatted("\"%s\" <%s>", ReportText::AUTHOR, strAddress.c_str()));
    }
    return report;
}

void LoadConfiguration()
{
    Bex::CSimpleString strPath;
    if (!LoadDaemonConfiguration(strPath))
        throw std::runtime_error(std::string("cannot load the configuration \"") + strPath.Text() + "\"");
    // Relative paths in it are meant from its directory, where the daemon works.
    if (!Platform::SetWorkingDirectory(DirectoryOf(strPath).c_str()))
        throw std::runtime_error(std::string("cannot enter the directory of \"") + strPath.Text() + "\"");
}

using CAddresses = Bex::CList<Bex::CSimpleString>;

CAddresses AddressesIn(std::string_view text)
{
    CAddresses addresses(false);
    Bex::Tokenize(text, " ,;<>", addresses, false);
    return addresses;
}

/// Parted by commas.
std::string UsableOf(const CAddresses& addresses)
{
    std::string strList;
    for (const Bex::CSimpleString& strAddress : addresses) {
        if (IsUsableAddress(strAddress))
            strList.append(strList.empty() ? "" : ",").append(strAddress.View());
    }
    return strList;
}

/// A report to the postmaster that came back: the last trace of what it tells.
bool IsNoticeToPostmaster(const CMail& returned)
{
    if (!Bex::StartsWithNoCase(returned.ContentType(), "multipart/report"))
        return false;
    for (const Bex::CSimpleString& strAddress : AddressesIn(Config().GetString(Keys::POSTMASTER_TO))) {
        if (strAddress.EqualsNoCase(returned.FirstRecipient()))
            return true;
    }
    return false;
}

std::string FieldsOf(const STextPart& part)
{
    std::string strFields;
    for (const std::string& strField : part.fields)
        strFields += strField + "\r\n";
    return strFields;
}

/// The part that brings the mail back, or nothing. A mail cannot be encoded in it (RFC 2046 5.2.1): of one that could
/// be changed on its way the header is returned.
std::string ReturnedPart(const SCommand& command, const CMail& returned, Bex::CFile& file)
{
    if (command.returned == SCommand::EReturn::Nothing)
        return {};
    std::string strContent(returned.GetHeaderText(EWriteMode::Plain));
    const size_t nHeader = strContent.size() - 2; // RFC 6522 3: no blank line at the end
    if (command.returned == SCommand::EReturn::Full && Platform::FileSize(command.strMail.Text()) <= MOST_RETURNED) {
        strContent += LoadMail(command.strMail, false, file).Body().View();
        if (strContent.ends_with("\r\n.\r\n")) // the end of the data is no part of it
            strContent.resize(strContent.size() - 3);
        if (IsTransportable(strContent))
            return std::string("Content-Type: message/rfc822\r\nContent-Transfer-Encoding: ") +
                   (HasEightBit(strContent) ? "8bit" : "7bit") + "\r\n\r\n" + strContent;
    }
    strContent.resize(nHeader);
    const STextPart part = MakeTextPart(strContent, "text/rfc822-headers");
    return FieldsOf(part) + "\r\n" + part.strBody;
}

std::string Boundary(const std::string& strText, const std::string& strReturned)
{
    std::string strBoundary;
    do
        strBoundary = "=_" + UniqueText();
    while (strText.find(strBoundary) != std::string::npos || strReturned.find(strBoundary) != std::string::npos);
    return strBoundary;
}

void SetParts(CAnswer& answer, const std::string& strReport, const std::string& strStatus,
              const std::string& strReturned)
{
    STextPart text = MakeTextPart(strReport);
    const std::string strBoundary = Boundary(text.strBody, strReturned);
    const std::string strDelimiter = "--" + strBoundary;
    std::string strBody = strDelimiter + "\r\n" + FieldsOf(text) + "\r\n" + text.strBody + "\r\n" + strDelimiter +
                          "\r\nContent-Type: message/delivery-status\r\n\r\n" + strStatus + "\r\n";
    if (!strReturned.empty())
        strBody += strDelimiter + "\r\n" + strReturned + "\r\n";
    if (HasEightBit(strReturned)) // RFC 2045 6.4: the whole is what its parts are
        answer.AddField("Content-Transfer-Encoding", "8bit");
    answer.SetText(strBody + strDelimiter + "--\r\n");
    answer.AddField("Content-Type",
                    "multipart/report; report-type=delivery-status;\r\n\tboundary=\"" + strBoundary + "\"");
}

void Notify(const SCommand& command, const CMail& returned, Bex::CFile& file, const std::string& strReceivers)
{
    const std::string strHost(LocalHostIdentity::Obtain().strHostName.View());
    const SReport report = LoadReport(command.strText, returned, strHost);
    SFailure failure = SFailure::FromReport(report.strText);
    if (failure.strRecipient.empty())
        failure.strRecipient = returned.FirstRecipient();

    CAnswer answer(strReceivers, returned.MessageID(), returned.References());
    answer.SetFrom(
        Bex::CSimpleString::Formatted("\"%s\" <%s>", report.mail.FromName().Text(), report.mail.FromAddress().Text()));
    answer.AddText("Subject", report.mail.Subject().IsEmpty() ? ReportText::SUBJECT : report.mail.Subject().Text());
    SetParts(answer, report.strText, failure.StatusText(strHost), ReturnedPart(command, returned, file));
    answer.QueueInto(Config().GetPath(Keys::QUEUE_DIR));
}

enum class EOutcome { Told, Nobody, LastTrace };

/// What is to be done about a mail, and who is told.
struct SPlan
{
    EOutcome outcome = EOutcome::Told;
    CToldMark::EWho who = CToldMark::EWho::Postmaster;
    std::string strReceivers{};
};

/// Of a mail whose sender is no address the postmaster's own run tells, or this one if there is none to come.
SPlan PlanFor(const SCommand& command, const CMail& returned)
{
    if (IsBounceSender(returned.EnvelopeSender()))
        return {.outcome = IsNoticeToPostmaster(returned) ? EOutcome::LastTrace : EOutcome::Nobody};
    if (!command.bIgnoreBulk && IsBulk(returned))
        return {.outcome = EOutcome::Nobody};
    SPlan plan{.strReceivers = UsableOf(AddressesIn(command.strTo))};
    if (!command.strTo.empty() && plan.strReceivers.empty())
        throw std::runtime_error("cannot send to <" + OneLine(command.strTo, 200) + ">");
    if (!command.strTo.empty())
        return plan;
    if (IsUsableAddress(returned.EnvelopeSender()))
        return {.who = CToldMark::EWho::Sender, .strReceivers = returned.EnvelopeSender().Text()};
    if (!command.bKeep)
        plan.strReceivers = UsableOf(AddressesIn(Config().GetString(Keys::POSTMASTER_TO)));
    if (plan.strReceivers.empty())
        plan.outcome = command.bKeep ? EOutcome::Nobody : EOutcome::LastTrace;
    return plan;
}

/// Another mail may have got the name meanwhile.
bool IsStill(const Bex::CSimpleString& strPath, const Bex::CFile& file)
{
    Platform::SFileIdentity present;
    return Platform::IdentityOf(strPath.Text(), present) && present.IsSameInode(file.Identity());
}

/// The marks go last: what a crash leaves is known for told.
void Dispose(const SCommand& command, EOutcome outcome, const Bex::CFile& file, const CToldMark& sender,
             const CToldMark& postmaster)
{
    if (!command.strTo.empty() && !sender.IsSet())
        throw std::runtime_error("the sender was not told before: the mail is kept");
    const std::string_view path = command.strMail.View();
    const bool bStill = IsStill(command.strMail, file);
    if (bStill && outcome == EOutcome::LastTrace)
        Bex::CFile::Move(command.strMail,
                         Bex::PathBelow(Config().GetPath(Keys::ERROR_DIR), path.substr(path.rfind('/') + 1)));
    else if (bStill)
        RemoveIfPresent(command.strMail);
    RemoveIfPresent(command.strText);
    sender.Remove();
    postmaster.Remove();
}

} // namespace

const char* NotifySender(const SCommand& given)
{
    static constexpr const char* DONE[] = {"notification queued", "not to be answered", "moved to the error directory"};
    SCommand command = given;
    command.strMail = Bex::CSimpleString(Platform::AbsolutePath(given.strMail));
    command.strText = Bex::CSimpleString(Platform::AbsolutePath(given.strText));
    LoadConfiguration();
    Bex::CFile file;
    const CMail returned = LoadMail(command.strMail, true, file);
    const CToldMark sender(command.strMail, CToldMark::EWho::Sender);
    const CToldMark postmaster(command.strMail, CToldMark::EWho::Postmaster);
    const SPlan plan = PlanFor(command, returned);
    const CToldMark& mark = plan.who == CToldMark::EWho::Sender ? sender : postmaster;
    if (plan.outcome == EOutcome::Told && !mark.IsSet()) {
        Notify(command, returned, file, plan.strReceivers);
        mark.Set();
    }
    if (!command.bKeep)
        Dispose(command, plan.outcome, file, sender, postmaster);
    else if (command.strTo.empty() && !sender.IsSet())
        sender.Set(); // also when nobody was to be told
    return DONE[static_cast<int>(plan.outcome)];
}
