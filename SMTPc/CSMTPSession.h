#pragma once

#include "Common/CSmartHost.h"
#include "SMTPc/CSMTPClient.h"
#include "SMTPc/SDeliverySettings.h"
#include "SMTPc/SPreparedMail.h"

/// The way of one mail through one connection, from the connect to the reply to its last byte.
///
/// Lives for one target, on the thread that owns the client. Every failure is raised: CSocketException,
/// CSecurityException, or the SMTP exceptions, after which the session can still be closed politely.
class CSMTPSession
{
public:
    /// The stop is that of the attempt's limit, whose time is left to the attempt: a session has its own.
    CSMTPSession(CSMTPClient& client, const SDeliverySettings& settings, const SPreparedMail& mail,
                 const Platform::CWaitLimit& attempt);
    ~CSMTPSession(); ///< the connection is closed
    CSMTPSession(const CSMTPSession&) = delete;
    CSMTPSession& operator=(const CSMTPSession&) = delete;

    void Deliver(const CSmartHost& target); ///< returns when the server has accepted the mail
    void Quit();                            ///< does not wait long for the answer

    bool HasAnswered() const { return m_bAnswered; } ///< with as much as a whole greeting
    bool WasSilent() const;                          ///< it did not answer for as long as one waits for an answer

private:
    void Open(const CSmartHost& target);
    void LimitSession();
    void LimitTo(uint64_t ui64Seconds);
    void Greet();
    void Secure(const CSmartHost& target);
    void Authenticate(const CSmartHost& target);
    void SendEnvelope();
    void SendPayload();
    void Expect(int iExpected, int iAlso, int iLine);

    CSMTPClient& m_client;
    const SDeliverySettings& m_settings;
    const SPreparedMail& m_mail;
    const Platform::CWaitLimit& m_attempt;
    const uint64_t m_ui64Begun; ///< as TickCount tells it
    bool m_bAnswered = false;
};
