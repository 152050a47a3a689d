#include "SMTPc/CSMTPSession.h"

#include "Bex/CActivity.h"
#include "Bex/CSocketException.h"
#include "Bex/CThread.h"
#include "Common/Statistics.h"
#include "Platform/Clock.h"
#include "SMTPc/CSMTPException.h"

#include <algorithm>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "SMTPc/SMTPSession";
constexpr uint32_t CHUNK = 8192;
constexpr uint64_t SLOWEST_TRANSFER = 4096; // bytes per second that a payload may need beyond the session's limit
constexpr uint32_t QUIT_SECONDS = 10;
constexpr uint32_t LEAST_SILENCE = 10; // seconds, which no failure takes that the other end tells of
constexpr uint64_t MILLIS_PER_SECOND = 1000;
constexpr uint64_t LAST_WORD_MILLIS = 10'000; // after a stop, for the answer to a whole mail: else it is sent again

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

CSMTPSession::CSMTPSession(std::unique_ptr<CSMTPConnection> pConnection, const SDeliverySettings& settings,
                           const SPreparedMail& mail, const Platform::CWaitLimit& attempt)
    : m_pConnection(std::move(pConnection)), m_bRides(m_pConnection != nullptr), m_settings(settings), m_mail(mail),
      m_attempt(attempt), m_ui64Begun(Platform::TickCount())
{}

CSMTPSession::~CSMTPSession()
{
    if (m_pConnection == nullptr)
        return;
    LimitTo(QUIT_SECONDS); // TLS says goodbye to peers that may not read any more
    try {
        Client().Close();
    } catch (const Bex::CException&) { // nothing was lost: the mail is accepted, or its failure is known
    }
}

void CSMTPSession::Deliver(const CSmartHost& target)
{
    if (m_bRides) {
        GoOn();
    } else {
        m_pConnection = std::make_unique<CSMTPConnection>(target);
        Open(target);
        Greet();
        Secure(target);
        Authenticate(target);
    }
    m_bReady = true;
    ++m_pConnection->nMails;
    SendEnvelope();
    SendPayload();
}

/// A server that has said something meanwhile, such as that it closes, is no longer at what we say next.
void CSMTPSession::GoOn()
{
    m_bAnswered = true;
    LimitSession();
    const bool bAhead = Client().Ahead() > 0;
    if (bAhead != m_mail.bAhead || (!bAhead && Client().HasInput()))
        Bex::ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_ABORTED);
}

bool CSMTPSession::MayGoOn() const
{
    if (!m_bReady || !MayBeShared())
        return false;
    const int iCode = Client().LastCode();
    const bool bRefused = iCode / 100 == 4 || iCode / 100 == 5;
    return !m_pConnection->bReset || (bRefused && iCode != CLOSES);
}

/// No other mail is for a target without the TLS that it should have had.
bool CSMTPSession::MayBeShared() const
{
    return !m_bAlone && m_pConnection->nMails < m_settings.nMailsPerConnection && !m_pConnection->target.bSecondTry;
}

bool CSMTPSession::WasSilent() const { return !m_bAnswered && HasWaited(); }

bool CSMTPSession::HasWaited() const
{
    return Platform::TickCount() - m_ui64Begun >= MILLIS_PER_SECOND * std::min(m_settings.dwTimeout, LEAST_SILENCE);
}

void CSMTPSession::Open(const CSmartHost& target)
{
    const int iFamily = target.endPoint.Raw().iFamily;
    const bool bIPv6 = iFamily == Platform::FAMILY_IPV6;
    LimitSession();
    Client().Create(iFamily);
    Client().Bind(bIPv6 && !m_settings.strInterface6.IsEmpty() ? m_settings.strInterface6 : m_settings.strInterface);
    Client().SetSecure(target.mode == ETLSMode::Direct);
    Client().SetCertificateName({});
    Client().SetMachineStore(false);
    Client().SetProtocols(0);
    Client().SetCheckCertificate(true);
    Client().SetDebugLevel(m_settings.iDebugLevel);
    Client().SetTimeout(m_settings.dwTimeout);
    Client().Connect(AddressText(target), target.endPoint.Port(), target.strHostName);
}

/// A peer that keeps each single wait just short of its time-out must not hold the thread for ever.
void CSMTPSession::LimitSession() { LimitTo(m_settings.dwSessionLimit + m_mail.payload.Size() / SLOWEST_TRANSFER); }

void CSMTPSession::LimitTo(uint64_t ui64Seconds)
{
    Bex::CActivity::MayTake(ui64Seconds * MILLIS_PER_SECOND);
    Client().SetLimit(m_attempt.For(ui64Seconds * MILLIS_PER_SECOND));
}

void CSMTPSession::Greet()
{
    const int iCode = Client().ReadReply();
    m_bAnswered = true;
    Statistics::Count(Statistics::ECount::Sessions);
    if (iCode != 220)
        Client().Refuse(iCode, CSMTPClient::EOtherReply::Temporary, __LINE__);
    Client().Hello(m_settings.strHelloName);
}

void CSMTPSession::Secure(const CSmartHost& target)
{
    if (!Client().Capabilities().bStartTls || !m_settings.bUseTls || target.mode == ETLSMode::None ||
        Client().IsEstablished())
        return;
    const Bex::CSocketEndPoint peer = Client().PeerEndPoint();
    if (peer.Address() != nullptr && peer.Address()->IsLoopback())
        Client().SetCheckCertificate(false);
    Client().SetCertificateName({});
    Client().SetMachineStore(true);
    Client().SetProtocols(m_settings.dwProtocols);
    Client().StartTls();
    Statistics::Count(Statistics::ECount::SecureSessions);
    Client().Hello(m_settings.strHelloName);
}

void CSMTPSession::Authenticate(const CSmartHost& target)
{
    if (target.strUser.IsEmpty() || target.strPassword.IsEmpty() || !Client().Capabilities().bAuth)
        return;
    const SExchanges exchanges = ChooseExchanges(Client().Capabilities());
    if (exchanges.first == nullptr)
        return;
    try {
        (Client().*exchanges.first)(target.strUser, target.strPassword);
        return;
    } catch (const CSMTPTemporaryException&) { // the next exchange may do, and so may none
    }
    if (exchanges.second != nullptr)
        (Client().*exchanges.second)(target.strUser, target.strPassword);
}

void CSMTPSession::SendPayload()
{
    const char* const pPayload = m_mail.payload.Data();
    const uint32_t nSize = m_mail.payload.Size();
    for (uint32_t nSent = 0; nSent < nSize;) {
        Bex::CThread::EndIfAbandoned();
        const uint32_t nChunk = std::min(CHUNK, nSize - nSent);
        Client().Send(pPayload + nSent, nChunk, 0);
        nSent += nChunk;
    }
}

void CSMTPSession::AwaitVerdict()
{
    Client().SetLimit(Client().Limit().EndingAfterStop(LAST_WORD_MILLIS));
    Expect(250, 250, __LINE__);
    m_pConnection->bReset = false;
}

void CSMTPSession::Expect(int iExpected, int iAlso, int iLine)
{
    const int iCode = Client().ReadReply();
    if (iCode == iExpected || iCode == iAlso)
        return;
    Client().Refuse(iCode, CSMTPClient::EOtherReply::Permanent, iLine);
}

void CSMTPSession::Quit()
{
    if (m_pConnection == nullptr)
        return;
    LimitTo(std::min(m_settings.dwTimeout, QUIT_SECONDS));
    if (Client().Ahead() > 0)
        Client().Close(); // in the middle of another mail
    else
        m_pConnection->Quit();
}
