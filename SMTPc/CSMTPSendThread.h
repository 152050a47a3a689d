#pragma once

#include "Bex/CThread.h"
#include "Common/CHeldMailFile.h"
#include "Common/CMail.h"
#include "Common/CSmartHost.h"
#include "Platform/CWaitLimit.h"
#include "SMTPc/SAttempt.h"
#include "SMTPc/SDeliveryFailure.h"
#include "SMTPc/SDeliverySettings.h"
#include "SMTPc/SPreparedMail.h"

#include <memory>
#include <optional>

struct CSMTPConnection;
class CSMTPSession;
class CWaitingConnections;

/// A thread that delivers mail files by SMTP, one attempt after the other: the targets of the recipient's domain in
/// order, until one takes the mail or refuses it for good.
///
/// A stop request ends whatever an attempt waits for at once. A failed attempt leaves an error report beside the mail
/// file; a successful one removes both, unless another file stands under the mail's name by then. A connection stays
/// open after an attempt, for the next one, as long as the settings let it and another mail wants it, or waits among
/// those that all threads share.
class CSMTPSendThread : public Bex::CThread
{
public:
    explicit CSMTPSendThread(const SDeliverySettings& settings,
                             std::shared_ptr<CWaitingConnections> pWaiting = nullptr); ///< null: none waits
    ~CSMTPSendThread() override;

protected:
    /// A mail as its file holds it.
    struct SLoadedMail
    {
        CMail mail;
        CHeldMailFile file;                    ///< nobody else may take it during the attempt
        std::optional<SPreparedMail> prepared; ///< before the attempt
    };

    void Body() override { SendMail(); }

    void SendMail(); ///< one attempt, whose verdict's number stays in m_iResult
    static SLoadResult LoadMail(const Bex::CSimpleString& strPath, SLoadedMail& loaded); ///< as CMessage::Load
    bool PrepareMessage(SLoadedMail& loaded, SPreparedMail& prepared) const;             ///< takes the body
    /// One attempt with what LoadMail loaded; takes the body. Whatever it raises is told as a failure, but never of a
    /// mail that a server has accepted.
    SAttempt Attempt(SLoadedMail& loaded);
    SAttempt NotLoaded(const SLoadResult& load) const; ///< what comes of a file that cannot be read, which is logged
    /// What comes of a failure before any target, which is told in report and logs.
    SAttempt Failed(const SDeliveryFailure& failure, const CMail& mail) const;
    Bex::CSimpleString RecipientOf(const CMail& mail) const; ///< empty: none
    void RemoveReport() const;                               ///< of the last failure, if there is one

    /// Whether another mail goes the way of the one that has just been delivered, and will be the next attempt.
    virtual bool TakesNext() { return false; }
    virtual SPreparedMail* ReadyNext() { return nullptr; } ///< that one, if it may be told of before the verdict
    virtual void LetGoOfNext() {}                          ///< it shall not wait: this mail goes on to another target
    bool HasConnection() const { return m_pConnection != nullptr; } ///< that the last attempt has left open
    void EndConnection();                                           ///< if there is one; it may wait

    SDeliverySettings m_settings;
    int m_iResult = 0;
    Bex::CSimpleString m_strMailPath;

private:
    SAttempt TryToSend(SLoadedMail& loaded);
    Platform::CWaitLimit AttemptLimit() const;
    SAttempt TryTargets(SPreparedMail& mail, CTargetList& targets, Platform::CWaitLimit limit);
    std::optional<SDeliveryFailure> TryTarget(SPreparedMail& mail, const CSmartHost& target,
                                              Platform::CWaitLimit& limit, std::optional<CSMTPSession>& session);
    bool MayWait() const;
    bool ObtainsConnectionTo(const CSmartHost& target);
    void PutReachedFirst(CTargetList& targets);
    void LeadNext(CSMTPSession& session);
    void EndRefused(CSMTPSession& session, bool bOthersFollow);
    bool IsSilent(const CSMTPSession& session, const CSmartHost& target) const;
    void Tell(const SDeliveryFailure& failure, const SPreparedMail& mail, const Bex::CSimpleString& strHost) const;
    SAttempt Delivered(CSMTPSession& session, const CSmartHost& target, const SPreparedMail& mail);
    void FinishDelivered(CSMTPSession& session, const SPreparedMail& mail, EMailFile& file);
    void RemoveFiles(const SPreparedMail& mail, EMailFile& file) const;
    EMailFile RemoveMail(const SPreparedMail& mail) const;

    std::shared_ptr<CWaitingConnections> m_pWaiting;
    std::unique_ptr<CSMTPConnection> m_pConnection; ///< open, between two attempts
    bool m_bRefused = false;                        ///< by a target of this attempt, for now
    bool m_bBegunAnew = false;                      ///< the attempt's time, behind a shared connection
};
