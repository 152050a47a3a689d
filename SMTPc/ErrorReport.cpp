#include "SMTPc/ErrorReport.h"

#include "Bex/CConfigFile.h"
#include "Bex/CFileException.h"
#include "Bex/CReplacingFile.h"
#include "Bex/TextFunctions.h"
#include "Common/CMail.h"
#include "Common/Globals.h"
#include "Common/LocalHostIdentity.h"
#include "Common/ReportText.h"
#include "SMTPc/ConsoleText.h"

#include <exception>
#include <optional>
#include <string>

namespace {

constexpr char SOURCE_FILE[] = "SMTPc/ErrorReport";
constexpr size_t NONE = std::string_view::npos;

/// The keys are read afresh: a report is written rarely, and the running configuration may be older than the file.
Bex::CSimpleString FromAddress(bool bRefusal, const Platform::CWaitLimit& limit)
{
    Bex::CConfigFile config;
    try {
        config.Load(Bex::JoinPath(ConfigDirectory(), CONFIGURATION_FILE));
    } catch (const Bex::CFileException&) {
        config.RemoveAll();
    }
    const Bex::CTextKey& key = bRefusal ? Keys::POSTMASTER_FROM : Keys::POSTMASTER;
    if (config.IsSet(key))
        return config.GetString(key);
    return Bex::CSimpleString::Formatted("postmaster@%s", LocalHostIdentity::Obtain(limit).strHostName.Text());
}

/// The field that tells where the mail came from; a refused session quotes the first that names a host.
std::optional<std::string> OriginField(const CMail& mail, bool bRefusal)
{
    std::optional<std::string> field;
    for (const Bex::CSimpleString& strValue : mail.Received()) {
        field = strValue.View();
        if (!bRefusal || field->find("from ") != NONE)
            break;
    }
    return field;
}

std::string Origin(const CMail& mail, bool bRefusal)
{
    const std::optional<std::string> field = OriginField(mail, bRefusal);
    if (!field)
        return {};
    const size_t nDate = field->rfind(';');
    const size_t nOpening = field->find('(');
    const size_t nClosing = field->find(')');
    if (nDate == NONE || nOpening == NONE || nClosing == NONE || nClosing < nOpening)
        return {};
    const std::string strDate(Bex::TrimmedView(std::string_view(*field).substr(nDate + 1)));
    return "The original message was received at " + strDate + "\r\nfrom " +
           field->substr(nOpening + 1, nClosing - nOpening - 1) + "\r\nwith id <" +
           std::string(mail.MessageID().View()) + ">\r\n\r\n";
}

std::string Head(const Bex::CSimpleString& strMailPath, bool bRefusal, const Platform::CWaitLimit& limit)
{
    CMail mail;
    mail.Load(strMailPath, true); // without it there is no origin to tell
    return std::string("X-Envelope-From: <>\r\nFrom: \"") + ReportText::AUTHOR + "\" <" +
           FromAddress(bRefusal, limit).Text() + ">\r\nSubject: " + ReportText::SUBJECT +
           "\r\nContent-Type: text/plain\r\n\r\n" + Origin(mail, bRefusal);
}

std::string Errors(const SDeliveryFailure& failure, const Bex::CSimpleString& strRecipient)
{
    const bool bForNow = failure.kind == SDeliveryFailure::EKind::Temporary;
    std::string strErrors = std::string(bForNow ? ReportText::CONTINUOUS_ERRORS : ReportText::PERMANENT_ERRORS) +
                            "\r\n" + strRecipient.Text() + "\r\n";
    if (!failure.IsRefusal())
        strErrors += std::string(ReportText::REASON) + failure.strText.Text() + ReportText::REASON_END + "\r\n";
    return strErrors;
}

std::string Transcript(const SDeliveryFailure& failure, const Bex::CSimpleString& strHostName)
{
    std::string strText = std::string(ReportText::TRANSCRIPT) + "\r\n";
    if (!strHostName.IsEmpty())
        strText += std::string(ReportText::TALKING_TO) + strHostName.Text() + ReportText::TALKING_TO_END + "\r\n\r\n";
    if (!failure.IsRefusal())
        return strText + failure.strText.Text() + "\r\n";
    for (const Bex::CSimpleString& strLine : failure.lines)
        strText += strLine.View();
    return strText;
}

/// The report gets its name when it is complete: a full disk must not cost the earlier one.
void Write(const Bex::CSimpleString& strPath, const std::string& strText)
{
    Bex::CReplacingFile file(strPath);
    file.WriteString(strText);
    file.Commit();
}

} // namespace

Bex::CSimpleString ErrorReportPath(const Bex::CSimpleString& strMailPath)
{
    return Bex::CSimpleString::Formatted("%s.err", strMailPath.Text());
}

void WriteErrorReport(const SDeliveryFailure& failure, const Bex::CSimpleString& strMailPath,
                      const Bex::CSimpleString& strHostName, const Bex::CSimpleString& strRecipient,
                      const Platform::CWaitLimit& limit)
{
    try {
        Write(ErrorReportPath(strMailPath), Head(strMailPath, failure.IsRefusal(), limit) +
                                                Errors(failure, strRecipient) + "\r\n" +
                                                Transcript(failure, strHostName));
    } catch (const Bex::CFileException& exception) {
        WriteConsole(stderr,
                     Bex::CSimpleString::Formatted("%s(SysError=%d, LibError=%d) at %s:%d caught at %s:%d\n",
                                                   exception.ClassName(), exception.SysError(), exception.LibError(),
                                                   exception.SourceFile(), exception.Line(), SOURCE_FILE, __LINE__));
    } catch (const Bex::CException& exception) {
        char szText[1024];
        exception.GetMessage(szText, sizeof(szText));
        WriteConsole(stderr, Bex::CSimpleString::Formatted("%s\n", szText));
    } catch (const std::exception& exception) {
        WriteConsole(stderr, std::string(exception.what()) + "\n");
    }
}
