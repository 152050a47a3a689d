#pragma once

#include "Bex/CThread.h"
#include "Common/CSmartHost.h"
#include "Common/SLoadResult.h"
#include "Platform/FileIdentity.h"
#include "SMTPc/CSMTPClient.h"
#include "SMTPc/SDeliverySettings.h"
#include "SMTPc/SPreparedMail.h"

class CMail;
class CSMTPSession;

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

/// A thread that delivers mail files by SMTP, one attempt per call of SendMail: the targets of the recipient's domain
/// in order, until one takes the mail or refuses it for good.
///
/// A stop request interrupts the session at once. A failed attempt leaves an error report beside the mail file; a
/// successful one removes both, unless another file stands under the mail's name by then.
class CSMTPSendThread : public Bex::CThread
{
public:
    explicit CSMTPSendThread(const SDeliverySettings& settings);
    ~CSMTPSendThread() override = default;

protected:
    void OnStopRequest() override { m_client.Interrupt(); }
    void Body() override { SendMail(); }

    void SendMail(); ///< of m_strMailPath; leaves m_iResult. What neither SMTP nor the network raises passes through
    /// The same with what LoadMail loaded of it; takes the body.
    void SendMail(CMail& mail);
    SLoadResult LoadMail(CMail& mail); ///< from m_strMailPath; as CMessage::Load

    SDeliverySettings m_settings;
    int m_iResult = DELIVERED;
    Bex::CSimpleString m_strMailPath;
    bool m_bMailKept = false; ///< it was delivered, and its file could not be removed

private:
    /// False (told) when the file cannot be used.
    bool LoadAndPrepare(SPreparedMail& prepared);
    static bool PrepareMessage(CMail& mail, SPreparedMail& prepared);
    void SendPrepared(SPreparedMail& mail);
    bool FindTargets(const SPreparedMail& mail, CTargetList& targets);
    bool TryTarget(const CSmartHost& target, const SPreparedMail& mail, CTargetList& targets);
    void FinishDelivered(CSMTPSession& session, const SPreparedMail& mail);
    void RemoveFiles();
    void RemoveMail();

    Platform::SFileIdentity m_identity; ///< of the mail file, from before it is read
    bool m_bRemoveAfterDelivery = true;
    CSMTPClient m_client;
};
