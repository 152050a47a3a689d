// How CSMTPSession tells who sends a mail and to whom, command by command or all of them together (RFC 2920).

#include "Bex/CSocketException.h"
#include "Common/CSilentPeers.h"
#include "Common/NormalizeAddress.h"
#include "SMTPc/CSMTPSession.h"

#include <algorithm>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "SMTPc/SMTPSession";
constexpr int BAD_SEQUENCE = 503;
constexpr int GO_AHEAD = 354;
constexpr uint32_t REST_SECONDS = 10;
constexpr uint64_t MILLIS_PER_SECOND = 1000;

constexpr const char* RSET = "RSET\r\n";
constexpr const char* DATA = "DATA\r\n";

/// Hosts that offer to take commands together and do not keep to it.
CSilentPeers& OutOfStep()
{
    static CSilentPeers hosts;
    return hosts;
}

[[noreturn]] void BreakOff(int iLine) { Bex::ThrowSocketException(SOURCE_FILE, iLine, Platform::SOCKET_ABORTED); }

bool IsRefusal(int iCode) { return iCode / 100 == 4 || iCode / 100 == 5; }

Bex::CSimpleString RecipientCommand(const SPreparedMail& mail)
{
    return Bex::CSimpleString::Formatted("RCPT To:<%s>\r\n", NormalizeAddress(mail.strRecipient).Text());
}

std::vector<Bex::CSimpleString> Envelope(const CSMTPClient& client, const SPreparedMail& mail)
{
    return {client.MailCommand(NormalizeAddress(mail.strSender), mail.strIdentity, mail.payload.Size()),
            RecipientCommand(mail), DATA};
}

} // namespace

bool CSMTPSession::Pipelines() const
{
    return m_settings.bPipelining && Client().Capabilities().bPipelining &&
           !OutOfStep().Contains(PlaceOf(m_pConnection->target));
}

void CSMTPSession::SendEnvelope()
{
    const bool bAhead = Client().Ahead() > 0;
    const bool bReset = std::exchange(m_pConnection->bReset, true) && !bAhead; // true unless all goes well
    m_bTogether = bAhead || Pipelines();
    if (m_bTogether && !bAhead) {
        std::vector<Bex::CSimpleString> commands = Envelope(Client(), m_mail);
        if (bReset)
            commands.insert(commands.begin(), RSET);
        Client().SendAhead(commands);
    }
    if (bReset) {
        Client().SendCommand(RSET);
        if (Client().ReadReply() != 250)
            BreakOff(__LINE__);
    }
    Client().MailFrom(NormalizeAddress(m_mail.strSender), m_mail.strIdentity, m_mail.payload.Size());
    m_bSender = true;
    Client().SendCommand(RecipientCommand(m_mail).Text());
    Expect(250, 251, __LINE__);
    Client().SendCommand(DATA);
    Expect(GO_AHEAD, GO_AHEAD, __LINE__);
    // What has come already is no answer to what it has not seen yet.
    if ((m_bRides || m_bTogether) && Client().HasInput())
        BreakOff(__LINE__);
    m_bGoAhead = true;
}

bool CSMTPSession::MayLead() const { return m_bTogether && MayBeShared(); }

void CSMTPSession::SendAhead(const SPreparedMail& next) { Client().SendAhead(Envelope(Client(), next)); }

void CSMTPSession::HearTheRest()
{
    if (m_pConnection == nullptr || m_bGoAhead || Client().Ahead() == 0)
        return;
    LimitTo(std::min(m_settings.dwTimeout, REST_SECONDS));
    bool bRefused = Client().Ahead() == 1; // the recipient; else the sender was, and the recipient's reply comes first
    while (Client().Ahead() > 1)
        bRefused = IsRefusal(Client().ReadReplyAhead());
    if (Client().ReadReplyAhead() != GO_AHEAD)
        return;
    if (!bRefused)
        BreakOff(__LINE__);        // it would take the end for an empty mail
    Client().SendCommand(".\r\n"); // RFC 2920 3.1
    Client().ReadReply();
}

/// A code that is neither a refusal nor what was expected belongs to another command. A sender who is refused may be
/// one mail too many for the connection, or the refusal may be the rest of an answer to the mail before.
bool CSMTPSession::IsOfTheConnection(const SDeliveryFailure& failure) const
{
    if (m_pConnection == nullptr || m_bGoAhead || !(m_bRides || m_bTogether))
        return false;
    return !failure.IsRefusal() || !IsOfTheMail() || IsOneTooMany();
}

bool CSMTPSession::IsOfTheMail() const { return IsRefusal(Client().LastCode()) && Client().LastCode() != BAD_SEQUENCE; }

bool CSMTPSession::IsOneTooMany() const
{
    return m_bRides && (Client().LastCode() == CLOSES || (!m_bSender && IsOfTheMail()));
}

/// Behind the text of another mail it may have dropped the commands, or it may not bear anything there.
void CSMTPSession::NoteOutOfStep(const SDeliveryFailure& failure) const
{
    if (m_pConnection == nullptr)
        return;
    const bool bRefused = failure.IsRefusal();
    const bool bLost = m_mail.bAhead && (bRefused ? !IsOneTooMany() : HasWaited());
    const bool bUnborne = Client().Ahead() > 0 && (!bRefused || Client().LastCode() == CLOSES);
    if (m_bGoAhead ? bUnborne : IsOfTheConnection(failure) && (!m_bRides || bLost))
        OutOfStep().Note(PlaceOf(m_pConnection->target), MILLIS_PER_SECOND * m_settings.dwSilenceKept);
}
