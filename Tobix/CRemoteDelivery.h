#pragma once

#include "Tobix/CRemoteAgent.h"
#include "Tobix/CSMTPDeliveryThread.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// The remote agent and its delivery threads, as the service starts and stops them. Every step is logged.
///
/// Owned by the service and used under its mutex, on the main thread or the dispatcher's. The threads share the list of
/// files with the agent, so that a thread which had to be given up may outlive it.
class CRemoteDelivery
{
public:
    CRemoteDelivery() = default;
    ~CRemoteDelivery();
    CRemoteDelivery(const CRemoteDelivery&) = delete;
    CRemoteDelivery& operator=(const CRemoteDelivery&) = delete;

    /// The names of the outgoing files, for both agents. Made at the first call, and anew after ForgetFiles.
    const std::shared_ptr<COutgoingFiles>& Files();
    void ForgetFiles()
    {
        m_pFiles = nullptr;
        m_pWaiting = nullptr;
    }
    bool Start();                       ///< the agent, then the threads
    bool StartMissing();                ///< goes on where a start failed; true also when all run
    Bex::CSimpleString Missing() const; ///< what could not be started, in words
    const std::shared_ptr<COutgoingFiles>& FilesOfAgent() const { return m_pFiles; } ///< null before there are any
    int64_t NextReleaseIn() const; ///< seconds until mail that waits is tried again; 0 without an agent
    bool HasAgent() const { return m_pAgent != nullptr; }
    std::string Describe() const; ///< "outgoing 340: 3 sending, 310 waiting until 14:05"; empty without an agent
    void RequestStops();
    /// Report is called while a thread takes its time to end.
    bool StopThreads(const Platform::CWaitLimit& limit, const std::function<void()>& Report);
    bool StopAgent(const Platform::CWaitLimit& limit, const std::function<void()>& Report); ///< after the threads

private:
    bool StartAgent();
    bool StartThreads();
    bool AddThreads();
    bool StartThread(const SDeliverySettings& settings);

    std::shared_ptr<COutgoingFiles> m_pFiles;
    std::shared_ptr<CWaitingConnections> m_pWaiting; ///< the agent's and the threads'
    std::unique_ptr<CRemoteAgent> m_pAgent;
    std::vector<std::unique_ptr<CSMTPDeliveryThread>> m_threads;
    size_t m_nThreads = 0; ///< wanted
};
