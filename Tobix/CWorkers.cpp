#include "Tobix/CWorkers.h"

#include "Bex/CService.h"
#include "Common/Globals.h"
#include "Tobix/ThreadControl.h"

namespace {

constexpr char LOCAL_AGENT[] = "local delivery agent";
constexpr unsigned WAIT_HINT = Bex::CService::DEFAULT_WAIT_HINT;
constexpr unsigned STOP_WAIT_HINT = 2000;

bool Sends() { return Config().GetFlag(Keys::AUTO_TRANSPORT); }

} // namespace

/// What still runs does so up to the end of the process.
CWorkers::~CWorkers() { Bex::CThread::Destroy(std::move(m_pLocalAgent)); }

bool CWorkers::Start(const CReport& Report)
{
    ClaimDirectories();
    if (!StartLocalAgent())
        return false;
    Report(WAIT_HINT);
    if (!Sends() || m_remoteDelivery.Start())
        return true;
    Stop(Report);
    return false;
}

/// Each file that is worked on is locked as well: without a claim nothing is unsafe.
void CWorkers::ClaimDirectories()
{
    m_queueClaim.TakeShared(Config().GetPath(Keys::QUEUE_DIR).Text());
    m_outgoingClaim.TakeShared(Config().GetPath(Keys::OUTGOING_DIR).Text());
}

void CWorkers::StartMissing()
{
    ClaimDirectories();
    if (!m_pLocalAgent)
        StartLocalAgent();
    if (Sends())
        m_remoteDelivery.StartMissing();
}

Bex::CSimpleString CWorkers::Missing() const
{
    Bex::CSimpleString strMissing(m_pLocalAgent ? "" : LOCAL_AGENT);
    const Bex::CSimpleString strRemote = Sends() ? m_remoteDelivery.Missing() : Bex::CSimpleString();
    if (!strMissing.IsEmpty() && !strRemote.IsEmpty())
        strMissing += ", ";
    return strMissing += strRemote;
}

void CWorkers::Look(SDaemonView& view) const
{
    if (m_pLocalAgent) {
        view.nQueue = m_pLocalAgent->Waiting();
        view.bShortOfSpace = m_pLocalAgent->IsShortOfSpace();
    }
    if (!m_remoteDelivery.HasAgent())
        return;
    view.pOutgoing = m_remoteDelivery.FilesOfAgent();
    view.iNextReleaseIn = m_remoteDelivery.NextReleaseIn();
}

std::string CWorkers::Describe() const
{
    const std::string strQueue = m_pLocalAgent ? "queue " + std::to_string(m_pLocalAgent->Waiting()) : "queue";
    const std::string strOutgoing = m_remoteDelivery.Describe();
    return strOutgoing.empty() ? strQueue : strQueue + ", " + strOutgoing;
}

bool CWorkers::StartLocalAgent()
{
    return ThreadControl::Start(m_pLocalAgent, LOCAL_AGENT,
                                [&] { return std::make_unique<CLocalAgent>(m_remoteDelivery.Files()); });
}

void CWorkers::Stop(const CReport& Report)
{
    if (m_pLocalAgent)
        m_pLocalAgent->RequestStop();
    m_remoteDelivery.RequestStops();
    const auto limit = Platform::CWaitLimit().For(ThreadControl::MOST_STOP_MILLIS);
    ThreadControl::Stop(std::move(m_pLocalAgent), LOCAL_AGENT, limit, [&] { Report(WAIT_HINT); });
    Report(STOP_WAIT_HINT);
    StopRemoteDelivery(limit, Report);
}

void CWorkers::StopRemoteDelivery(const Platform::CWaitLimit& limit, const CReport& Report)
{
    if (m_remoteDelivery.HasAgent()) {
        m_remoteDelivery.StopThreads(limit, [&] { Report(WAIT_HINT); });
        Report(STOP_WAIT_HINT);
        m_remoteDelivery.StopAgent(limit, [&] { Report(WAIT_HINT); });
    }
    m_remoteDelivery.ForgetFiles();
}
