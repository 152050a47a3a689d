#pragma once

#include "Bex/CThread.h"
#include "SMTPc/CWaitingConnections.h"
#include "Tobix/COutgoingFiles.h"
#include "Tobix/CWatchedDirectory.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

/// The thread that owns the outgoing queue: it finds new mail files, hands their names to the delivery threads, and
/// releases those that failed for another try. It never opens a mail file.
///
/// Owned by CRemoteDelivery. Its settings are read once, by the constructor. Nothing of its state is on disk: after a
/// restart every file is found again and tried at once.
class CRemoteAgent : public Bex::CThread
{
public:
    explicit CRemoteAgent(
        std::shared_ptr<COutgoingFiles> pFiles,
        std::shared_ptr<CWaitingConnections> pWaiting = std::make_shared<CWaitingConnections>(0)); ///< it has them end
    ~CRemoteAgent() override = default;

    const std::shared_ptr<COutgoingFiles>& Files() const { return m_pFiles; } ///< what the delivery threads take from

    int64_t NextRelease() const { return m_iNextRelease; } ///< of retries, in ScanOutgoing's time; any thread

    /// One pass at that time (seconds of a clock that never goes back): the count of new names. For the agent's own
    /// thread, and for tests.
    unsigned ScanOutgoing(int64_t iNow);
    static unsigned RestMillis(uint64_t nListingMicros); ///< after a listing that took so much of a processor
    /// Has waiting connections end meanwhile; a stop or a pause ends it. For the agent's own thread, and for tests.
    void Rest(unsigned dwMillis);

protected:
    void Body() override;

private:
    void ReleaseRetriesWhenDue(int64_t iNow);
    unsigned ListNewFiles();
    void AskAgainLater();
    bool AddFile(const char* pszName);

    CWatchedDirectory m_directory;
    std::shared_ptr<COutgoingFiles> m_pFiles;
    std::shared_ptr<CWaitingConnections> m_pWaiting;
    std::atomic<int64_t> m_iNextRelease = 0;
    std::optional<int64_t> m_iLastRelease; ///< as ScanOutgoing's; none before the first pass
    uint64_t m_nListingMicros = 0;         ///< of the last scan; 0 when it listed nothing
    int64_t m_iRetryMin;                   ///< seconds
    int64_t m_iRetryMax;                   ///< seconds
};
