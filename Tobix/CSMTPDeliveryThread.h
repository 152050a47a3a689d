#pragma once

#include "SMTPc/CSMTPSendThread.h"
#include "Tobix/COutgoingFiles.h"

#include <memory>

/// A worker of the remote delivery: takes one mail file after the other from the remote agent, delivers it, and
/// decides by the result what becomes of it: gone, kept for a retry, bounced, or moved to the error directory.
///
/// Owned by CRemoteDelivery.
class CSMTPDeliveryThread : public CSMTPSendThread
{
public:
    CSMTPDeliveryThread(const SDeliverySettings& settings, std::shared_ptr<COutgoingFiles> pFiles,
                        const Bex::CSimpleString& strErrorDirectory, const Bex::CSimpleString& strOutgoingDirectory,
                        std::shared_ptr<CWaitingConnections> pWaiting = nullptr);
    ~CSMTPDeliveryThread() override = default;

    /// Whether a mail has waited for longer than AutoTransTime, in minutes, allows. A file that seems to come from the
    /// future, as the time was set back, is as old as its name is known.
    static bool IsOverdue(int64_t iAgeSeconds, int64_t iSecondsKnown, int iMinutes);

protected:
    void Body() override;
    bool TakesNext() override;
    SPreparedMail* ReadyNext() override;
    void LetGoOfNext() override;

private:
    struct SFileState
    {
        int64_t iCreated; ///< seconds since 1970
        int64_t iSize;    ///< bytes
    };
    bool TakeFile();
    bool IsDomainsTurn(const Bex::CSimpleString& strName);
    void GoOnOrEnd();
    void DeliverGuarded();
    bool WasSent(); ///< its removal is all that was to be done, and was tried
    void KeepSent();
    void DeliverFile(SAttempt& attempt);
    SAttempt AttemptOrReturn(SLoadedMail& loaded);
    SLoadResult LoadForDelivery(SLoadedMail& loaded) const;
    bool ReadFileState(SFileState& state) const;
    /// What becomes of the file after the attempt; false, here and below: it is to go to the error directory.
    bool Settle(const SAttempt& attempt, SLoadedMail& loaded, const SFileState& state);
    bool Delivered(const SAttempt& attempt, const CMail& mail, const SFileState& state);
    bool FailedTemporarily(const SAttempt& attempt, CHeldMailFile& file, const SFileState& state);
    bool FailedPermanently(const SAttempt& attempt, CHeldMailFile& file);
    bool GiveUp(CHeldMailFile& file);
    bool Misconfigured(const SAttempt& attempt) const;
    bool Aborted() const;
    void MoveToError(CHeldMailFile& file);
    void ReleaseUnlessStill(CHeldMailFile& file);
    void ReleaseName();
    static void LogTraffic(const CMail& mail, int64_t iSize);

    std::shared_ptr<COutgoingFiles> m_pFiles; ///< the remote agent's
    Bex::CSimpleString m_strFileName;
    Bex::CSimpleString m_strRoute;         ///< that mail's; empty: nobody asks
    Bex::CSimpleString m_strNext;          ///< in this thread's hands, to be the next; empty: none
    unsigned m_nInRow = 0;                 ///< taken along, with the one before them
    std::unique_ptr<SLoadedMail> m_pReady; ///< the mail m_strFileName, where it was made ready before its turn
    std::unique_ptr<SLoadedMail> m_pNext;  ///< the mail m_strNext likewise
    Bex::CSimpleString m_strErrorDirectory;
    Bex::CSimpleString m_strOutgoingDirectory;
};
