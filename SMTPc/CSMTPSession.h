#pragma once

#include "SMTPc/CSMTPConnection.h"
#include "SMTPc/SDeliveryFailure.h"
#include "SMTPc/SDeliverySettings.h"
#include "SMTPc/SPreparedMail.h"

#include <memory>

/// The way of one mail through one connection, from the connect, or from the end of the mail before it, to the reply to
/// its last byte.
///
/// Lives for one target, on the thread that owns the connection. Every failure is raised: CSocketException,
/// CSecurityException, or the SMTP exceptions, after which the session can still be closed politely.
class CSMTPSession
{
public:
    /// Goes on over the connection, which reaches the target, or opens one when there is none. The stop is that of the
    /// attempt's limit, whose time is left to the attempt: a session has its own.
    CSMTPSession(std::unique_ptr<CSMTPConnection> pConnection, const SDeliverySettings& settings,
                 const SPreparedMail& mail, const Platform::CWaitLimit& attempt);
    ~CSMTPSession(); ///< the connection is closed
    CSMTPSession(const CSMTPSession&) = delete;
    CSMTPSession& operator=(const CSMTPSession&) = delete;

    void KeepFromOthers() { m_bAlone = true; } ///< no other mail may share the connection
    void Deliver(const CSmartHost& target);    ///< up to the mail's last byte
    bool MayLead() const;                      ///< the envelope of another mail may follow before this one's verdict
    void SendAhead(const SPreparedMail& next);
    void AwaitVerdict(); ///< returns when the server has accepted the mail
    /// What a server still has to say about a mail that it has refused, and the end of a transfer that it asks for all
    /// the same. Does not wait long.
    void HearTheRest();
    void Quit(); ///< does not wait long for the answer

    bool HasAnswered() const { return m_bAnswered; } ///< with as much as a whole greeting
    bool WasSilent() const;                          ///< it did not answer for as long as one waits for an answer
    /// The failure, of this session, says nothing about this mail: another mail had used the connection before, or
    /// commands were sent together.
    bool IsOfTheConnection(const SDeliveryFailure& failure) const;
    /// For the next sessions with a host that did not bear commands together, or behind a text. Not after a stop, which
    /// is no host's failure.
    void NoteOutOfStep(const SDeliveryFailure& failure) const;
    bool MayGoOn() const; ///< with another mail, after this one was accepted or refused
    std::unique_ptr<CSMTPConnection> TakeConnection() { return std::move(m_pConnection); } ///< and ends this session

private:
    static constexpr int CLOSES = 421; // RFC 5321 3.8

    CSMTPClient& Client() const { return m_pConnection->client; }
    void Open(const CSmartHost& target);
    void GoOn();
    void LimitSession();
    void LimitTo(uint64_t ui64Seconds);
    void Greet();
    void Secure(const CSmartHost& target);
    void Authenticate(const CSmartHost& target);
    bool MayBeShared() const;
    bool IsOfTheMail() const;  ///< the last code, if it is a refusal
    bool IsOneTooMany() const; ///< the last code, if it is a refusal, may tell that the connection has had enough
    bool HasWaited() const;    ///< for as long as one waits for an answer
    bool Pipelines() const;
    void SendEnvelope();
    void SendPayload();
    void Expect(int iExpected, int iAlso, int iLine);

    std::unique_ptr<CSMTPConnection> m_pConnection; ///< null before it is opened
    const bool m_bRides;                            ///< behind another mail
    bool m_bAlone = false;                          ///< it has the connection for this mail only
    bool m_bTogether = false;                       ///< the commands of the envelope were sent so
    const SDeliverySettings& m_settings;
    const SPreparedMail& m_mail;
    const Platform::CWaitLimit& m_attempt;
    const uint64_t m_ui64Begun; ///< as TickCount tells it
    bool m_bAnswered = false;
    bool m_bReady = false;   ///< for mail
    bool m_bSender = false;  ///< the server has taken the sender
    bool m_bGoAhead = false; ///< the server waits for the payload
};
