#include "SMTPc/CSMTPClient.h"

#include "Bex/CSocketException.h"
#include "Bex/CThread.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Encodings.h"
#include "Common/ReportText.h"
#include "Platform/HostLookup.h"
#include "SMTPc/CSMTPException.h"
#include "SMTPc/ConsoleText.h"

#include <algorithm>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "SMTPc/SMTPClient";
constexpr int LEVEL_DEBUG = 7;
constexpr uint32_t DEFAULT_TIMEOUT = 120; // seconds
constexpr std::string_view HIDDEN = "********";

/// The lines of a text, each ended by LF.
template <class TAction>
void ForEachLine(std::string_view text, TAction action)
{
    while (!text.empty()) {
        const size_t nLength = std::min(text.find('\n'), text.size());
        action(text.substr(0, nLength));
        text.remove_prefix(std::min(nLength + 1, text.size()));
    }
}

/// A name that goes into a command must be one word.
bool IsOneWord(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

/// Of the code and the character behind it, with which a line of a reply ought to begin.
size_t LengthOfCode(std::string_view line)
{
    const size_t nDigits = std::min(line.find_first_not_of("0123456789"), line.size());
    return nDigits == CReplyReader::CODE_LENGTH ? std::min(line.size(), CReplyReader::TEXT_START) : 0;
}

void LogDebug(std::string_view prefix, std::string_view text)
{
    const std::string strLine = std::string(prefix) + std::string(Bex::TrimmedView(text));
    Bex::Log(Bex::MainLog(), LEVEL_DEBUG, "%s", strLine.c_str());
}

} // namespace

CSMTPClient::CSMTPClient() { SetTimeout(DEFAULT_TIMEOUT); }

void CSMTPClient::Forget()
{
    m_transcript.RemoveAll();
    m_capabilities = {};
    m_bAuthenticated = false;
    m_secrets.clear();
    m_reply.Clear();
    m_strReplyText = "";
    m_unread = {};
    m_bOneByOne = false;
    m_nAhead = 0;
}

void CSMTPClient::Connect(const Bex::CSimpleString& strAddress, uint16_t wPort, const Bex::CSimpleString& strName)
{
    Forget();
    m_strPeerName = strName.IsEmpty() ? strAddress : strName;
    const char* const pszName = m_strPeerName.Text();
    WriteConsole(stdout,
                 Bex::CSimpleString::Formatted("Trying to connect to %s (%s)...\n", pszName, strAddress.Text()));
    Bex::LogInfo(Bex::MainLog(), "trying to connect to %s (%s)", pszName, strAddress.Text());
    try {
        CSecureSocket::Connect(strAddress, wPort, m_strPeerName);
    } catch (...) {
        WriteConsole(stdout, Bex::CSimpleString::Formatted("Connection to %s failed\n", pszName));
        Bex::LogWarning(Bex::MainLog(), "connection to %s failed", pszName);
        throw;
    }
    WriteConsole(stdout, Bex::CSimpleString::Formatted("Connection to %s established\n", pszName));
    Bex::LogNotice(Bex::MainLog(), "connection to %s established", pszName);
}

uint32_t CSMTPClient::SendCommand(const char* pszText)
{
    Bex::CThread::EndIfAbandoned();
    const Bex::CSimpleString strText(pszText);
    return SendShown(strText, strText);
}

uint32_t CSMTPClient::SendShown(const Bex::CSimpleString& strText, std::string_view shown)
{
    const Bex::CSimpleString strShown(shown);
    m_transcript.Append(Bex::CSimpleString::Formatted("%s%s", ReportText::COMMAND, strShown.Text()));
    if (m_nAhead > 0) {
        --m_nAhead;
        return strText.Length();
    }
    Echo(strShown);
    return CSecureSocket::Send(strText.Text(), strText.Length(), 0);
}

void CSMTPClient::Echo(const Bex::CSimpleString& strShown) const
{
    WriteConsole(stdout, strShown);
    if (m_iDebugLevel >= 1)
        LogDebug("C: ", strShown);
}

void CSMTPClient::SendAhead(const std::vector<Bex::CSimpleString>& commands)
{
    Bex::CThread::EndIfAbandoned();
    std::string strAll;
    for (const Bex::CSimpleString& strCommand : commands) {
        Echo(strCommand);
        strAll += strCommand.View();
    }
    m_bOneByOne = true;
    m_nAhead = commands.size();
    CSecureSocket::Send(strAll.data(), static_cast<uint32_t>(strAll.size()), 0);
}

int CSMTPClient::ReadReplyAhead()
{
    --m_nAhead;
    return ReadReply();
}

int CSMTPClient::ReadReply()
{
    m_reply.Clear();
    m_strReplyText = "";
    ReceiveReply();
    m_strReplyText = std::string_view(m_reply.Text());
    RecordReply();
    return m_reply.Code();
}

void CSMTPClient::ReceiveReply()
{
    CReplyReader::EState state = CReplyReader::EState::Incomplete;
    while (state == CReplyReader::EState::Incomplete) {
        if (m_unread.empty())
            m_unread = {m_receiveBuffer, Receive(m_receiveBuffer, sizeof(m_receiveBuffer), 0)};
        if (m_unread.empty())
            Bex::ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_ABORTED);
        state = m_bOneByOne ? m_reply.TakeOne(m_unread) : m_reply.Take(std::exchange(m_unread, {}));
        if (m_iDebugLevel > 1)
            LogDebug("S: ", ShownSoFar(m_reply.LastLine()).substr(0, CReplyReader::LONGEST_SHOWN_LINE));
    }
    if (state == CReplyReader::EState::TooLong)
        Bex::ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_ABORTED);
}

void CSMTPClient::RecordReply()
{
    std::string strShown;
    std::string strEntry;
    ForEachLine(m_reply.Text(), [&](std::string_view line) {
        const std::string strLine = Shown(line);
        strShown += strLine.substr(0, CReplyReader::LONGEST_SHOWN_LINE) + '\n';
        strEntry += ReportText::REPLY + strLine + '\n';
    });
    if (strShown.size() > Bex::LONGEST_LOG_TEXT) // a journal may read the console, too
        strShown.replace(Bex::LONGEST_LOG_TEXT - 1, std::string::npos, "\n");
    m_transcript.Append(Bex::CSimpleString(std::string_view(strEntry)));
    WriteConsole(stdout, strShown);
    if (m_iDebugLevel >= 1)
        LogDebug("S: ", strShown);
}

/// A reply's line without what the server repeats of our secrets. A short one that looks like a code hides no code.
std::string CSMTPClient::Shown(std::string_view line) const
{
    const size_t nText = LengthOfCode(line);
    for (const std::string& strSecret : m_secrets) {
        const size_t nSecret = line.find(strSecret, strSecret.size() > CReplyReader::TEXT_START ? 0 : nText);
        if (nSecret != std::string_view::npos)
            return std::string(line.substr(0, std::min(nSecret, nText))) + std::string(HIDDEN);
    }
    return std::string(line);
}

/// A line that has not ended may end in the beginning of a secret.
std::string CSMTPClient::ShownSoFar(std::string_view line) const
{
    return m_secrets.empty() || line.ends_with('\n') ? Shown(line) : std::string(HIDDEN);
}

void CSMTPClient::Refuse(int iCode, EOtherReply other, int iLine) const
{
    const int iClass = iCode / 100;
    if (iClass == 4 || (iClass != 5 && other == EOtherReply::Temporary))
        throw CSMTPTemporaryException(SOURCE_FILE, iLine, m_transcript);
    throw CSMTPPermanentException(SOURCE_FILE, iLine, m_transcript);
}

void CSMTPClient::Hello(const Bex::CSimpleString& strName)
{
    const Bex::CSimpleString strOwnName = strName.IsEmpty() ? OwnName() : strName;
    m_capabilities = {}; // what was offered in clear does not count for the session under TLS (RFC 3207 4.2)
    SendCommand(Bex::CSimpleString::Formatted("EHLO %s\r\n", strOwnName.Text()).Text());
    if (ReadReply() == 250) {
        LearnCapabilities();
        return;
    }
    SendCommand(Bex::CSimpleString::Formatted("HELO %s\r\n", strOwnName.Text()).Text());
    if (ReadReply() != 250)
        throw CSMTPTemporaryException(SOURCE_FILE, __LINE__, m_transcript);
}

Bex::CSimpleString CSMTPClient::OwnName() const
{
    const Bex::CSocketEndPoint endPoint = LocalEndPoint();
    if (endPoint.Address() == nullptr)
        Bex::ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_NO_SUCH_FAMILY);
    std::string strName;
    if (Platform::LookupName(endPoint.Raw(), strName, m_limit) && IsOneWord(strName) &&
        strName != endPoint.Address()->Text().View())
        return std::string_view(strName);
    return Bex::CSimpleString::Formatted("[%s]", endPoint.Address()->Text().Text());
}

void CSMTPClient::LearnCapabilities()
{
    const auto offers = [this](std::string_view keyword) {
        return m_strReplyText.View().find(keyword) != std::string_view::npos;
    };
    m_capabilities.bExtended = true;
    m_capabilities.bStartTls = offers("STARTTLS");
    m_capabilities.bAuth = offers("AUTH");
    m_capabilities.bCramSha1 = m_capabilities.bAuth && offers("CRAM-SHA1");
    m_capabilities.bCramMd5 = m_capabilities.bAuth && offers("CRAM-MD5");
    m_capabilities.bPlain = m_capabilities.bAuth && offers("PLAIN");
    m_capabilities.bLogin = m_capabilities.bAuth && offers("LOGIN");
    m_capabilities.bSize = offers("SIZE");
    m_capabilities.b8BitMime = offers("8BITMIME");
    m_capabilities.bPipelining = offers("PIPELINING");
}

void CSMTPClient::StartTls()
{
    SendCommand("STARTTLS\r\n");
    const int iCode = ReadReply();
    if (iCode != 220)
        Refuse(iCode, EOtherReply::Permanent, __LINE__);
    if (m_reply.EndsInReturn()) { // its LF is no part of the handshake
        char cRest = '\0';
        Receive(&cRest, 1, 0);
    }
    m_reply.Clear();
    Negotiate(m_strPeerName);
    WriteConsole(stdout, Bex::CSimpleString::Formatted("Connection to %s secured\n", m_strPeerName.Text()));
    Bex::LogNotice(Bex::MainLog(), "connection to %s secured", m_strPeerName.Text());
}

Bex::CSimpleString CSMTPClient::MailCommand(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strIdentity,
                                            uint32_t dwSize) const
{
    Bex::CSimpleString strSize;
    if (m_capabilities.bSize && dwSize > 0)
        strSize.Format(" SIZE=%u", dwSize);
    Bex::CSimpleString strIdentityParameter;
    if (m_capabilities.bAuth && !m_bAuthenticated && !strIdentity.IsEmpty())
        strIdentityParameter.Format(" AUTH=%s", XtextEncode(strIdentity).Text());
    return Bex::CSimpleString::Formatted("MAIL From:<%s>%s%s\r\n", strSender.Text(), strSize.Text(),
                                         strIdentityParameter.Text());
}

bool CSMTPClient::MailFrom(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strIdentity, uint32_t dwSize)
{
    m_transcript.RemoveAll();
    SendCommand(MailCommand(strSender, strIdentity, dwSize).Text());
    const int iCode = ReadReply();
    if (iCode != 250)
        Refuse(iCode, EOtherReply::Permanent, __LINE__);
    return true;
}
