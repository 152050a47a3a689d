#include "Responder/Notification.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Common/LocalHostIdentity.h"
#include "Common/ReportText.h"
#include "Platform/FileSystem.h"
#include "Responder/AnsweredMail.h"
#include "Responder/CAnswer.h"
#include "Responder/CUnsentMark.h"
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

void LoadReport(const Bex::CSimpleString& strPath, const CMail& returned, const std::string& strHost, SReport& report)
{
    if (Platform::KindOf(strPath.Text()) != Platform::EPathKind::Missing &&
        Platform::FileSize(strPath.Text()) >= SMALLEST_REPORT) {
        LoadMail(report.mail, strPath, false);
        report.strText = report.mail.Body().View();
    } else {
        report.strText = std::string(ReportText::PERMANENT_ERRORS) + "\r\n" + returned.FirstRecipient().Text() + "\r\n";
    }
    if (report.mail.FromAddress().IsEmpty()) {
        const std::string strDefault = "postmaster@" + strHost;
        report.mail.SetFrom(Bex::CSimpleString::Formatted(
            "\"%s\" <%s>", ReportText::AUTHOR, Config().GetString(Keys::POSTMASTER.Name(), strDefault.c_str()).Text()));
    }
}

void LoadConfiguration()
{
    const Bex::CSimpleString strPath = Bex::JoinPath(ConfigDirectory(), CONFIGURATION_FILE);
    if (!Config().Load(strPath))
        throw std::runtime_error(std::string("cannot load the configuration \"") + strPath.Text() + "\"");
}

/// Whom the notification goes to, parted by commas.
std::string Receivers(const SCommand& command, const CMail& returned)
{
    Bex::CList<Bex::CSimpleString> addresses(false);
    if (command.strTo.empty())
        addresses.Append(returned.EnvelopeSender());
    else
        Bex::Tokenize(command.strTo, " ,;<>", addresses, false);
    std::string strList;
    for (const Bex::CSimpleString& strAddress : addresses) {
        if (!IsUsableAddress(strAddress))
            throw std::runtime_error("cannot send to <" + OneLine(strAddress, 200) + ">");
        strList.append(strList.empty() ? "" : ",").append(strAddress.View());
    }
    if (strList.empty())
        throw std::runtime_error("nobody to send to");
    return strList;
}

/// The part that brings the mail back, or nothing.
std::string ReturnedPart(const SCommand& command, const CMail& returned)
{
    if (command.returned == SCommand::EReturn::Nothing)
        return {};
    const Bex::CSimpleString strHeader = returned.GetHeaderText(EWriteMode::Plain);
    std::string strContent(strHeader.View());
    const bool bFull =
        command.returned == SCommand::EReturn::Full && Platform::FileSize(command.strMail.Text()) <= MOST_RETURNED;
    if (bFull) {
        CMail whole;
        LoadMail(whole, command.strMail, false);
        strContent += whole.Body().View();
        if (strContent.ends_with("\r\n.\r\n")) // the end of the data is no part of it
            strContent.resize(strContent.size() - 3);
    } else {
        strContent.resize(strContent.size() - 2); // RFC 6522 3: no blank line at the end
    }
    return std::string("Content-Type: ") + (bFull ? "message/rfc822" : "text/rfc822-headers") +
           "\r\nContent-Transfer-Encoding: " + (HasEightBit(strContent) ? "8bit" : "7bit") + "\r\n\r\n" + strContent;
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
    std::string strBody = strDelimiter + "\r\n";
    for (const std::string& strField : text.fields)
        strBody += strField + "\r\n";
    strBody += "\r\n" + text.strBody + "\r\n" + strDelimiter + "\r\nContent-Type: message/delivery-status\r\n\r\n" +
               strStatus + "\r\n";
    if (!strReturned.empty())
        strBody += strDelimiter + "\r\n" + strReturned + "\r\n";
    if (HasEightBit(strReturned)) // RFC 2045 6.4: the whole is what its parts are
        answer.AddField("Content-Transfer-Encoding", "8bit");
    answer.SetText(strBody + strDelimiter + "--\r\n");
    answer.AddField("Content-Type",
                    "multipart/report; report-type=delivery-status;\r\n\tboundary=\"" + strBoundary + "\"");
}

void Notify(const SCommand& command, const CMail& returned)
{
    LoadConfiguration();
    const std::string strHost(LocalHostIdentity::Obtain().strHostName.View());
    SReport report;
    LoadReport(command.strText, returned, strHost, report);
    SFailure failure = SFailure::FromReport(report.strText);
    if (failure.strRecipient.empty())
        failure.strRecipient = returned.FirstRecipient();

    CAnswer answer(Receivers(command, returned), returned.MessageID(), returned.References());
    answer.SetFrom(
        Bex::CSimpleString::Formatted("\"%s\" <%s>", report.mail.FromName().Text(), report.mail.FromAddress().Text()));
    const std::string strSubject = HeaderText(report.mail.Subject());
    answer.AddField("Subject", strSubject.empty() ? ReportText::SUBJECT : strSubject);
    SetParts(answer, report.strText, failure.StatusText(strHost), ReturnedPart(command, returned));
    answer.QueueInto(Config().GetPath(Keys::QUEUE_DIR));
}

} // namespace

const char* NotifySender(const SCommand& command)
{
    if (Platform::KindOf(command.strMail.Text()) == Platform::EPathKind::Missing)
        throw std::runtime_error(std::string("there is no mail \"") + command.strMail.Text() + "\"");
    CUnsentMark mark(command.strText, command.bKeep);
    CMail returned;
    LoadMail(returned, command.strMail, true);
    const bool bAnswer = !IsBounceSender(returned.EnvelopeSender()) && (command.bIgnoreBulk || !IsBulk(returned));
    if (bAnswer)
        Notify(command, returned);
    mark.Sent();
    if (!command.bKeep) {
        RemoveIfPresent(command.strMail);
        RemoveIfPresent(command.strText);
    }
    return bAnswer ? "notification queued" : "not to be answered";
}
