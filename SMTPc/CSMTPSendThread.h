#pragma once

#include "Bex/CArray.h"
#include "Bex/CThread.h"
#include "Common/CSmartHost.h"
#include "SMTPc/CSMTPClient.h"

/// What a delivery attempt came to.
enum EDeliveryResult : int {
    DELIVERED = 0,
    DELIVERY_FILE_LOCKED = 1,       ///< the mail file is busy
    DELIVERY_CONNECTION_FAILED = 8, ///< socket or TLS error with the last target
    DELIVERY_TEMPORARY = 9,
    DELIVERY_PERMANENT = 19,
    DELIVERY_NOT_PREPARED = 29, ///< the mail file cannot be read or names no recipient
    DELIVERY_STOPPED = 31
};

/// How mail leaves; read once from the configuration.
struct SDeliverySettings
{
    Bex::CSimpleString strHelloName;
    Bex::CSimpleString strInterface; ///< local address for IPv4, and for IPv6 while the next one is empty
    Bex::CSimpleString strInterface6;
    bool bUseTls = true;
    bool bLowerRecipientDomain = false;
    uint32_t dwProtocols = 0;
    uint32_t dwTimeout = 90; ///< seconds, 60 to 1200

    static SDeliverySettings FromConfiguration();
};

/// A thread that delivers mail files by SMTP, one attempt per call of SendMail: the targets of the recipient's domain
/// in order, until one takes the mail or refuses it for good.
///
/// A stop request interrupts the session at once. A failed attempt leaves an error report beside the mail file; a
/// successful one removes both.
class CSMTPSendThread : public Bex::CThread
{
public:
    explicit CSMTPSendThread(const SDeliverySettings& settings);
    ~CSMTPSendThread() override = default;

protected:
    void OnStopRequest() override { m_client.Interrupt(); }
    void Body() override { SendMail(); }

    void SendMail(); ///< of m_strMailPath; leaves m_iResult
    /// Everything that a session needs of the mail. False (told) when the file cannot be used.
    struct SPreparedMail
    {
        Bex::CSimpleString strSender;
        Bex::CSimpleString strRecipient;
        Bex::CArray<char> payload; ///< with the end marker
        Bex::CSimpleString strIdentity;
        Bex::CSimpleString strMessageID;
    };
    bool PrepareMessage(const Bex::CSimpleString& strMailPath, SPreparedMail& mail) const;

    SDeliverySettings m_settings;
    int m_iResult = DELIVERED;
    Bex::CSimpleString m_strMailPath;

private:
    bool m_bRemoveAfterDelivery = true;
    CSMTPClient m_client;
};
