#include "Tobix/CRemoteDelivery.h"

#include "Bex/Log.h"
#include "Common/Globals.h"
#include "Platform/CJournal.h"
#include "Platform/Clock.h"
#include "Tobix/ThreadControl.h"

#include <algorithm>

namespace {

constexpr char THREADS[] = "remote delivery threads";
constexpr uint64_t MILLIS_PER_SECOND = 1000;
constexpr int LONGEST_WAIT = 300; // seconds, of a connection: servers wait no longer (RFC 5321 4.5.3.2.7)

Bex::CSimpleString ThreadName(size_t nIndex)
{
    return Bex::CSimpleString::Formatted("remote delivery thread %d", static_cast<int>(nIndex) + 1);
}

} // namespace

/// A start that failed leaves workers behind.
CRemoteDelivery::~CRemoteDelivery()
{
    for (std::unique_ptr<CSMTPDeliveryThread>& pThread : m_threads)
        Bex::CThread::Destroy(std::move(pThread));
    Bex::CThread::Destroy(std::move(m_pAgent));
}

const std::shared_ptr<COutgoingFiles>& CRemoteDelivery::Files()
{
    const bool bSends = Config().GetFlag(Keys::AUTO_TRANSPORT);
    const int iPerDomain = bSends ? Config().GetInt(Keys::AUTO_TRANSPORT_THREADS_PER_DOMAIN) : 0;
    if (!m_pFiles)
        m_pFiles = std::make_shared<COutgoingFiles>(static_cast<unsigned>(std::max(0, iPerDomain)),
                                                    bSends && Config().GetInt(Keys::CONNECTION_MAILS) > 1,
                                                    bSends && Platform::CJournal::IsExpected());
    return m_pFiles;
}

bool CRemoteDelivery::Start() { return StartAgent() && StartThreads(); }

bool CRemoteDelivery::StartMissing() { return (m_pAgent || StartAgent()) && AddThreads(); }

Bex::CSimpleString CRemoteDelivery::Missing() const
{
    if (!m_pAgent)
        return "remote delivery agent";
    if (m_threads.size() == m_nThreads)
        return {};
    return Bex::CSimpleString::Formatted("%zu of %zu %s", m_nThreads - m_threads.size(), m_nThreads, THREADS);
}

bool CRemoteDelivery::StartAgent()
{
    return ThreadControl::Start(m_pAgent, "remote agent thread", [this] {
        m_pWaiting = std::make_shared<CWaitingConnections>(
            static_cast<unsigned>(std::clamp(Config().GetInt(Keys::CONNECTION_WAIT), 0, LONGEST_WAIT)));
        return std::make_unique<CRemoteAgent>(Files(), m_pWaiting);
    });
}

bool CRemoteDelivery::StartThreads()
{
    if (!m_threads.empty()) {
        Bex::LogError(Bex::MainLog(), "%s already instantiated", THREADS);
        return false;
    }
    return AddThreads();
}

bool CRemoteDelivery::AddThreads()
{
    m_nThreads = static_cast<size_t>(std::max(1, Config().GetInt(Keys::AUTO_TRANSPORT_THREADS)));
    if (m_threads.size() == m_nThreads)
        return true;
    const SDeliverySettings settings = SDeliverySettings::FromConfiguration();
    while (m_threads.size() < m_nThreads) {
        if (!StartThread(settings))
            return false;
    }
    Bex::LogInfo(Bex::MainLog(), "%s started", THREADS);
    return true;
}

/// One after the other: a number that cannot be had is told where it ends.
bool CRemoteDelivery::StartThread(const SDeliverySettings& settings)
{
    std::unique_ptr<CSMTPDeliveryThread> pThread;
    const bool bStarted = ThreadControl::Start(pThread, ThreadName(m_threads.size()).Text(), [&] {
        return std::make_unique<CSMTPDeliveryThread>(settings, m_pAgent->Files(), Config().GetPath(Keys::ERROR_DIR),
                                                     Config().GetPath(Keys::OUTGOING_DIR), m_pWaiting);
    });
    if (bStarted)
        m_threads.push_back(std::move(pThread));
    return bStarted;
}

std::string CRemoteDelivery::Describe() const
{
    if (!m_pAgent)
        return {};
    const COutgoingFiles::SCounts counts = m_pFiles->Counts();
    std::string strText = "outgoing " + std::to_string(counts.nAll);
    if (counts.nSending > 0)
        strText += ": " + std::to_string(counts.nSending) + " sending";
    if (counts.nWaiting > 0) {
        const Platform::SLocalTime until = Platform::ToLocalTime(Platform::NowSeconds() + NextReleaseIn());
        const auto strUntil =
            Bex::CSimpleString::Formatted("%zu waiting until %02d:%02d", counts.nWaiting, until.iHour, until.iMinute);
        strText.append(counts.nSending > 0 ? ", " : ": ").append(strUntil.View());
    }
    return strText;
}

int64_t CRemoteDelivery::NextReleaseIn() const
{
    const auto iNow = static_cast<int64_t>(Platform::TickCount() / MILLIS_PER_SECOND);
    return m_pAgent ? m_pAgent->NextRelease() - iNow : 0;
}

void CRemoteDelivery::RequestStops()
{
    for (const std::unique_ptr<CSMTPDeliveryThread>& pThread : m_threads)
        pThread->RequestStop();
    if (m_pAgent)
        m_pAgent->RequestStop();
}

bool CRemoteDelivery::StopThreads(const Platform::CWaitLimit& limit, const std::function<void()>& Report)
{
    if (m_threads.empty()) {
        Bex::LogError(Bex::MainLog(), "%s not instantiated", THREADS);
        return false;
    }
    bool bAll = true;
    for (size_t n = 0; n < m_threads.size(); ++n)
        bAll &= ThreadControl::Stop(std::move(m_threads[n]), ThreadName(n).Text(), limit, Report);
    m_threads.clear();
    Bex::LogNotice(Bex::MainLog(), "%s stopped", THREADS);
    return bAll;
}

bool CRemoteDelivery::StopAgent(const Platform::CWaitLimit& limit, const std::function<void()>& Report)
{
    const bool bStopped = ThreadControl::Stop(std::move(m_pAgent), "remote delivery agent", limit, Report);
    if (m_pWaiting)
        m_pWaiting->EndAll(); // of which a thread may have brought one since the agent ended
    return bStopped;
}
