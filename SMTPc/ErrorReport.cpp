#include "SMTPc/ErrorReport.h"

#include "Bex/CConfigFile.h"
#include "Bex/CFile.h"
#include "Bex/CFileException.h"
#include "Bex/TextFunctions.h"
#include "Common/CMail.h"
#include "Common/Globals.h"
#include "Common/LocalHostIdentity.h"
#include "SMTPc/ConsoleText.h"

#include <exception>
#include <optional>
#include <string>

namespace {

constexpr char SOURCE_FILE[] = "SMTPc/ErrorReport";
constexpr char PERMANENT_ERRORS[] = "\t----- The following addresses had permanent fatal errors -----\r\n";
constexpr char CONTINUOUS_ERRORS[] = "\t----- The following addresses had continuous fatal errors -----\r\n";
constexpr char TRANSCRIPT[] = "\t----- Transcript of session follows -----\r\n";
constexpr size_t NONE = std::string_view::npos;

struct SReportContext
{
    const Bex::CSimpleString& strMailPath;
    const Bex::CSimpleString& strHostName;
    const Bex::CSimpleString& strRecipient;
};

/// The keys are read afresh: a report is written rarely, and the running configuration may be older than the file.
Bex::CSimpleString FromAddress(bool bSessionRefused)
{
    Bex::CConfigFile config;
    try {
        config.Load(Bex::JoinPath(ConfigDirectory(), CONFIGURATION_FILE));
    } catch (const Bex::CFileException&) {
        config.RemoveAll();
    }
    const Bex::CTextKey& key = bSessionRefused ? Keys::POSTMASTER_FROM : Keys::POSTMASTER;
    if (config.IsSet(key))
        return config.GetString(key);
    return Bex::CSimpleString::Formatted("postmaster@%s", LocalHostIdentity::Obtain().strHostName.Text());
}

/// The field that tells where the mail came from; a refused session quotes the first that names a host.
std::optional<std::string> OriginField(const CMail& mail, bool bSessionRefused)
{
    std::optional<std::string> field;
    for (const Bex::CSimpleString& strValue : mail.Received()) {
        field = strValue.View();
        if (!bSessionRefused || field->find("from ") != NONE)
            break;
    }
    return field;
}

std::string Origin(const CMail& mail, bool bSessionRefused)
{
    const std::optional<std::string> field = OriginField(mail, bSessionRefused);
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

std::string Head(const SReportContext& context, bool bSessionRefused)
{
    CMail mail;
    mail.Load(context.strMailPath, true); // without it there is no origin to tell
    return "X-Envelope-From: <>\r\nFrom: \"Mail Delivery Subsystem\" <" +
           std::string(FromAddress(bSessionRefused).View()) +
           ">\r\nSubject: Returned mail: see transcript for details\r\nContent-Type: text/plain\r\n\r\n" +
           Origin(mail, bSessionRefused);
}

std::string TalkingTo(const SReportContext& context)
{
    if (context.strHostName.IsEmpty())
        return {};
    return ".... while talking to " + std::string(context.strHostName.View()) + ":\r\n\r\n";
}

std::string BrokenSessionText(const SReportContext& context, const std::string& strReason)
{
    return Head(context, false) + PERMANENT_ERRORS + std::string(context.strRecipient.View()) +
           "\r\n\t(reason: " + strReason + ")\r\n\r\n" + TRANSCRIPT + TalkingTo(context) + strReason + "\r\n";
}

std::string RefusedSessionText(const SReportContext& context, const char* pszErrors, const CSMTPException& exception)
{
    std::string strText = Head(context, true) + pszErrors + std::string(context.strRecipient.View()) + "\r\n\r\n" +
                          TRANSCRIPT + TalkingTo(context);
    for (const Bex::CSimpleString& strLine : exception.Lines())
        strText += strLine.View();
    return strText;
}

/// The report gets its name when it is complete: a full disk must not cost the earlier one.
void Write(const Bex::CSimpleString& strPath, const std::string& strText)
{
    const Bex::CSimpleString strTemporary = CMessage::TemporaryPath(strPath);
    try {
        Bex::CFile file;
        file.Open(strTemporary,
                  Bex::CFile::modeWrite | Bex::CFile::modeCreate | Bex::CFile::modeTruncate |
                      Bex::CFile::shareExclusive | Bex::CFile::typeBinary,
                  Bex::CFile::PERMISSION_READ_WRITE);
        file.Write(strText.data(), static_cast<uint32_t>(strText.size()));
        file.Close();
        Bex::CFile::Move(strTemporary, strPath);
    } catch (const Bex::CFileException&) {
        try {
            Bex::CFile::Remove(strTemporary);
        } catch (const Bex::CFileException&) { // it may not have come into being
        }
        throw;
    }
}

template <class TCompose>
void WriteReport(const SReportContext& context, TCompose compose)
{
    try {
        Write(ErrorReportPath(context.strMailPath), compose());
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

} // namespace

Bex::CSimpleString ErrorReportPath(const Bex::CSimpleString& strMailPath)
{
    return Bex::CSimpleString::Formatted("%s.err", strMailPath.Text());
}

void WriteErrorReport(const Bex::CSocketException& exception, const Bex::CSimpleString& strMailPath,
                      const Bex::CSimpleString& strHostName, const Bex::CSimpleString& strRecipient)
{
    const SReportContext context{strMailPath, strHostName, strRecipient};
    WriteReport(context, [&] { return BrokenSessionText(context, exception.Text()); });
}

void WriteErrorReport(const Bex::CSecurityException& exception, const Bex::CSimpleString& strMailPath,
                      const Bex::CSimpleString& strHostName, const Bex::CSimpleString& strRecipient)
{
    const SReportContext context{strMailPath, strHostName, strRecipient};
    WriteReport(context, [&] { return BrokenSessionText(context, exception.Text()); });
}

void WriteErrorReport(const CSMTPTemporaryException& exception, const Bex::CSimpleString& strMailPath,
                      const Bex::CSimpleString& strHostName, const Bex::CSimpleString& strRecipient)
{
    const SReportContext context{strMailPath, strHostName, strRecipient};
    WriteReport(context, [&] { return RefusedSessionText(context, CONTINUOUS_ERRORS, exception); });
}

void WriteErrorReport(const CSMTPPermanentException& exception, const Bex::CSimpleString& strMailPath,
                      const Bex::CSimpleString& strHostName, const Bex::CSimpleString& strRecipient)
{
    const SReportContext context{strMailPath, strHostName, strRecipient};
    WriteReport(context, [&] { return RefusedSessionText(context, PERMANENT_ERRORS, exception); });
}
