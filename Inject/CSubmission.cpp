#include "Inject/CSubmission.h"

#include "Bex/CTime.h"
#include "Bex/TextFunctions.h"
#include "Common/CMail.h"
#include "Common/IsValidAddress.h"
#include "Common/MailText.h"
#include "Common/UniqueText.h"
#include "Inject/AddressList.h"

namespace {

constexpr size_t LONGEST_ADDRESS = 320; // RFC 5321 4.5.3.1
constexpr size_t MOST_RECIPIENT_BYTES = CMessage::MAX_HEADER_BYTES / 2;
constexpr size_t LONGEST_NAME = 200;

/// Of those that the daemon can mail to, the ones that a queue file can hold: reading it drops apostrophes.
void RequireMailable(const std::string& strAddress, EExit ifNot)
{
    if (strAddress.size() > LONGEST_ADDRESS || !IsValidAddress(strAddress) || strAddress.find('\'') != strAddress.npos)
        throw CRefusal(ifNot, "\"" + OneLine(strAddress, LONGEST_ADDRESS) + "\" is no address to mail to");
}

std::string QuotedName(const std::string& strName)
{
    if (HasEightBit(strName))
        return HeaderText("From", strName, LONGEST_NAME) + "\r\n\t";
    std::string strPlain = OneLine(strName, LONGEST_NAME);
    std::erase_if(strPlain, [](char c) { return c == '"' || c == '\\'; });
    return strPlain.empty() ? "" : "\"" + strPlain + "\" ";
}

} // namespace

CSubmission::CSubmission(const SCommand& command, const SSettings& settings)
    : m_command(command), m_settings(settings), m_strId(UniqueText()), m_strSender(Sender()),
      m_file(settings.strQueue, "i_" + m_strId + ".eml")
{}

void CSubmission::Run()
{
    {
        const Platform::CLentRightsLaidDown laidDown;
        CInput input(m_command.bDotEnds);
        ReadHeader(input);
        CopyBody(input);
        m_file.Finish();
    }
    m_file.Commit();
}

/// Nobody but who is trusted gets another sender than himself. None at all is anybody's to ask for: it is nobody's
/// name, and what answers mail on a user's behalf must not be answered (RFC 3834 3.3).
std::string CSubmission::Sender() const
{
    if (!m_command.sender)
        return m_settings.CallersAddress();
    const std::string_view given = Bex::TrimmedView(*m_command.sender);
    if (given.empty() || given == "<>")
        return {};
    if (!m_settings.bTrusted)
        return m_settings.CallersAddress();
    const std::vector<std::string> addresses = AddressList(given);
    if (addresses.empty())
        return {};
    if (addresses.size() > 1)
        throw CRefusal(EExit::Usage, "-f names more than one sender");
    const std::string& strAddress = addresses.front();
    std::string strSender =
        strAddress.find('@') == std::string::npos ? strAddress + "@" + m_settings.strHost : strAddress;
    RequireMailable(strSender, EExit::Usage);
    return strSender;
}

/// Each one once. Those without a domain are this host's own users for the daemon, whatever its name is.
void CSubmission::AddRecipients(const std::vector<std::string>& addresses, EExit ifInvalid)
{
    for (const std::string& strAddress : addresses) {
        RequireMailable(strAddress, ifInvalid);
        if (!m_known.insert(strAddress).second)
            continue;
        (m_strRecipients += m_strRecipients.empty() ? "" : ",") += strAddress;
        if (++m_nRecipients > CMail::MAX_RECIPIENTS || m_strRecipients.size() > MOST_RECIPIENT_BYTES)
            throw CRefusal(EExit::BadData, "there are too many recipients");
    }
}

void CSubmission::ReadHeader(CInput& input)
{
    for (const std::string_view argument : m_command.recipients)
        AddRecipients(AddressList(argument), EExit::Usage);
    if (m_nRecipients == 0 && !m_command.bRecipientsInMail)
        throw CRefusal(EExit::Usage, "there is no recipient");
    const CHeader header(input);
    if (m_command.bRecipientsInMail)
        AddRecipients(header.Recipients(), EExit::BadData);
    if (m_nRecipients == 0)
        throw CRefusal(EExit::BadData, "the mail names no recipient in To, Cc or Bcc");
    m_file.Write("X-Envelope-From: <" + m_strSender + ">\r\nX-Envelope-To: <" + m_strRecipients + ">\r\n");
    const std::string strDate = Bex::CTime::Now().MailDate().Text();
    m_file.Write("Received: by " + m_settings.strHost + " (tobix-inject, uid " +
                 std::to_string(m_settings.caller.nUser) + ")\r\n\tid " + m_strId + "; " + strDate + "\r\n");
    if (!header.Has("Message-ID"))
        m_file.Write("Message-ID: <" + m_strId + "@" + m_settings.strHost + ">\r\n");
    if (!header.Has("From"))
        m_file.Write("From: " + Author() + "\r\n");
    if (!header.Has("To") && m_nRecipients > 1) // the daemon would name the first one, though he may be a secret
        m_file.Write("To: undisclosed-recipients:;\r\n");
    if (!header.Has("Date"))
        m_file.Write("Date: " + strDate + "\r\n");
    m_file.Write(header.Text());
    m_file.Write("\r\n");
    WriteBody(header.BodyStart());
}

std::string CSubmission::Author() const
{
    const std::string strName = m_command.name ? *m_command.name : m_settings.caller.strFullName;
    return QuotedName(strName) + "<" + (m_strSender.empty() ? m_settings.CallersAddress() : m_strSender) + ">";
}

void CSubmission::CopyBody(CInput& input)
{
    for (std::string_view piece; input.Next(piece);)
        WriteBody(piece);
    if (m_bAfterDot) // else the daemon takes it for the end of the mail's text
        m_file.Write("\r\n");
}

void CSubmission::WriteBody(std::string_view piece)
{
    if (piece.empty())
        return;
    m_nBody += piece.size() + 1;
    if (m_nBody > UINT32_MAX)
        throw CRefusal(EExit::BadData, "the mail is larger than 4 GB");
    m_bAfterDot = m_bAtLineStart && (piece == ".\n" || piece == ".\r\n");
    m_bAtLineStart = piece.ends_with('\n');
    m_file.Write(piece);
}
