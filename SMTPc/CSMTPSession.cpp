#include "SMTPc/CSMTPSession.h"

#include "Bex/CActivity.h"
#include "Bex/CSocketException.h"
#include "Bex/CThread.h"
#include "Common/NormalizeAddress.h"
#include "Common/Statistics.h"
#include "Platform/Clock.h"
#include "SMTPc/CSMTPException.h"

#include <algorithm>

namespace {

constexpr uint32_t CHUNK = 8192;
constexpr uint64_t SLOWEST_TRANSFER = 4096; // bytes per second that a payload may need beyond the session's limit
constexpr uint32_t QUIT_SECONDS = 10;
constexpr uint32_t LEAST_SILENCE = 10; // seconds, which no failure takes that the other end tells of
constexpr uint64_t MILLIS_PER_SECOND = 1000;
constexpr int SHUTDOWN_SENDING = 1;

Bex::CSimpleString AddressText(const CSmartHost& target)
{
    return target.endPoint.Address() != nullptr ? target.endPoint.Address()->Text() : Bex::CSimpleString();
}

using Exchange = bool (CSMTPClient::*)(const Bex::CSimpleString&, const Bex::CSimpleString&);

/// The exchange to begin with, and the one after it when it fails for now; null when there is none.
struct SExchanges
{
    Exchange first = nullptr;
    Exchange second = nullptr;
};

SExchanges ChooseExchanges(const CSMTPClient::SCapabilities& offered)
{
    const Exchange login = offered.bLogin ? &CSMTPClient::AuthLogin : nullptr;
    const Exchange plain = offered.bPlain ? &CSMTPClient::AuthPlain : nullptr;
    const Exchange clear = plain != nullptr ? plain : login;
    if (offered.bCramSha1)
        return {&CSMTPClient::AuthCramSha1, clear};
    if (offered.bCramMd5)
        return {&CSMTPClient::AuthCramMd5, clear};
    return {clear, plain != nullptr ? login : nullptr};
}

} // namespace

CSMTPSession::CSMTPSession(CSMTPClient& client, const SDeliverySettings& settings, const SPreparedMail& mail,
                           const Platform::CWaitLimit& attempt)
    : m_client(client), m_settings(settings), m_mail(mail), m_attempt(attempt), m_ui64Begun(Platform::TickCount())
{}

CSMTPSession::~CSMTPSession()
{
    LimitTo(QUIT_SECONDS); // TLS says goodbye to peers that may not read any more
    try {
        m_client.Close();
    } catch (const Bex::CException&) { // nothing was lost: the mail is accepted, or its failure is known
    }
}

void CSMTPSession::Deliver(const CSmartHost& target)
{
    Open(target);
    Greet();
    Secure(target);
    Authenticate(target);
    SendEnvelope();
    SendPayload();
}

bool CSMTPSession::WasSilent() const
{
    return !m_bAnswered &&
           Platform::TickCount() - m_ui64Begun >= MILLIS_PER_SECOND * std::min(m_settings.dwTimeout, LEAST_SILENCE);
}

void CSMTPSession::Open(const CSmartHost& target)
{
    const int iFamily = target.endPoint.Raw().iFamily;
    const bool bIPv6 = iFamily == Platform::FAMILY_IPV6;
    LimitSession();
    m_client.Create(iFamily);
    m_client.Bind(bIPv6 && !m_settings.strInterface6.IsEmpty() ? m_settings.strInterface6 : m_settings.strInterface);
    m_client.SetSecure(target.mode == ETLSMode::Direct);
    m_client.SetCertificateName({});
    m_client.SetMachineStore(false);
    m_client.SetProtocols(0);
    m_client.SetCheckCertificate(true);
    m_client.SetDebugLevel(m_settings.iDebugLevel);
    m_client.SetTimeout(m_settings.dwTimeout);
    m_client.Connect(AddressText(target), target.endPoint.Port(), target.strHostName);
}

/// A peer that keeps each single wait just short of its time-out must not hold the thread for ever.
void CSMTPSession::LimitSession() { LimitTo(m_settings.dwSessionLimit + m_mail.payload.Size() / SLOWEST_TRANSFER); }

void CSMTPSession::LimitTo(uint64_t ui64Seconds)
{
    Bex::CActivity::MayTake(ui64Seconds * MILLIS_PER_SECOND);
    m_client.SetLimit(m_attempt.For(ui64Seconds * MILLIS_PER_SECOND));
}

void CSMTPSession::Greet()
{
    const int iCode = m_client.ReadReply();
    m_bAnswered = true;
    Statistics::Count(Statistics::ECount::Sessions);
    if (iCode != 220)
        m_client.Refuse(iCode, CSMTPClient::EOtherReply::Temporary, __LINE__);
    m_client.Hello(m_settings.strHelloName);
}

void CSMTPSession::Secure(const CSmartHost& target)
{
    if (!m_client.Capabilities().bStartTls || !m_settings.bUseTls || target.mode == ETLSMode::None ||
        m_client.IsEstablished())
        return;
    const Bex::CSocketEndPoint peer = m_client.PeerEndPoint();
    if (peer.Address() != nullptr && peer.Address()->IsLoopback())
        m_client.SetCheckCertificate(false);
    m_client.SetCertificateName({});
    m_client.SetMachineStore(true);
    m_client.SetProtocols(m_settings.dwProtocols);
    m_client.StartTls();
    Statistics::Count(Statistics::ECount::SecureSessions);
    m_client.Hello(m_settings.strHelloName);
}

void CSMTPSession::Authenticate(const CSmartHost& target)
{
    if (target.strUser.IsEmpty() || target.strPassword.IsEmpty() || !m_client.Capabilities().bAuth)
        return;
    const SExchanges exchanges = ChooseExchanges(m_client.Capabilities());
    if (exchanges.first == nullptr)
        return;
    try {
        (m_client.*exchanges.first)(target.strUser, target.strPassword);
        return;
    } catch (const CSMTPTemporaryException&) { // the next exchange may do, and so may none
    }
    if (exchanges.second != nullptr)
        (m_client.*exchanges.second)(target.strUser, target.strPassword);
}

void CSMTPSession::SendEnvelope()
{
    m_client.MailFrom(NormalizeAddress(m_mail.strSender), m_mail.strIdentity, m_mail.payload.Size());
    m_client.SendCommand(
        Bex::CSimpleString::Formatted("RCPT To:<%s>\r\n", NormalizeAddress(m_mail.strRecipient).Text()).Text());
    Expect(250, 251, __LINE__);
    m_client.SendCommand("DATA\r\n");
    Expect(354, 354, __LINE__);
}

void CSMTPSession::SendPayload()
{
    const char* const pPayload = m_mail.payload.Data();
    const uint32_t nSize = m_mail.payload.Size();
    for (uint32_t nSent = 0; nSent < nSize;) {
        Bex::CThread::EndIfAbandoned();
        const uint32_t nChunk = std::min(CHUNK, nSize - nSent);
        m_client.Send(pPayload + nSent, nChunk, 0);
        nSent += nChunk;
    }
    Expect(250, 250, __LINE__);
}

void CSMTPSession::Expect(int iExpected, int iAlso, int iLine)
{
    const int iCode = m_client.ReadReply();
    if (iCode != iExpected && iCode != iAlso)
        m_client.Refuse(iCode, CSMTPClient::EOtherReply::Permanent, iLine);
}

void CSMTPSession::Quit()
{
    LimitTo(std::min(m_settings.dwTimeout, QUIT_SECONDS));
    m_client.SendCommand("QUIT\r\n");
    m_client.ReadReply();
    m_client.Shutdown(SHUTDOWN_SENDING);
    m_client.Close();
}
