#pragma once

#include "Platform/CDirectoryClaim.h"
#include "Tobix/CLocalAgent.h"
#include "Tobix/CRemoteDelivery.h"
#include "Tobix/ControlAnswers.h"

#include <functional>
#include <memory>
#include <string>

/// The daemon's workers: the local agent and, where mail is sent, the remote agent with its delivery threads. Every
/// step is logged.
///
/// Owned by the service and used under its mutex, on the main thread or the dispatcher's.
class CWorkers
{
public:
    /// Called after each step, and every now and then while a worker takes its time to end, with the milliseconds until
    /// the next call.
    using CReport = std::function<void(unsigned dwWaitHint)>;

    CWorkers() = default;
    ~CWorkers();
    CWorkers(const CWorkers&) = delete;
    CWorkers& operator=(const CWorkers&) = delete;

    bool Start(const CReport& Report); ///< all of them; when that fails those that were started are stopped
    /// Starts what does not run; every worker is tried, whatever became of the others. To be repeated while Missing.
    void StartMissing();
    Bex::CSimpleString Missing() const; ///< what StartMissing could not start, in words
    void Look(SDaemonView& view) const; ///< its part of what an administrator sees
    std::string Describe() const;       ///< what there is to do, from what they have in memory
    void Stop(const CReport& Report);   ///< all at the same time; they are then waited for one by one
    CLocalAgent* LocalAgent() { return m_pLocalAgent.get(); } ///< may be null

private:
    void ClaimDirectories();
    bool StartLocalAgent();
    void StopRemoteDelivery(const Platform::CWaitLimit& limit, const CReport& Report);

    Platform::CDirectoryClaim m_queueClaim; ///< which keep tools out that work on the files themselves
    Platform::CDirectoryClaim m_outgoingClaim;
    std::unique_ptr<CLocalAgent> m_pLocalAgent;
    CRemoteDelivery m_remoteDelivery;
};
