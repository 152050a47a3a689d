#include "SMTPc/CWaitingConnections.h"

#include "Platform/Clock.h"
#include "SMTPc/SDeliveryFailure.h"

#include <utility>

namespace {

constexpr uint64_t MILLIS_PER_SECOND = 1000;
constexpr uint64_t LONGEST_ANSWER = 10'000; // milliseconds, to a QUIT
constexpr uint64_t LONGEST_SEND = 100;      // milliseconds: whom nothing else was sent has room for a QUIT
constexpr uint64_t LONGEST_ROUND = 1000;    // milliseconds, for all of them together

} // namespace

void CWaitingConnections::Bring(std::unique_ptr<CSMTPConnection> pConnection)
{
    pConnection->client.SetLimit({}); // that of the thread it comes from ends with it
    std::unique_lock lock(m_lock);
    m_waiting.push_back({std::move(pConnection), Platform::TickCount() + MILLIS_PER_SECOND * m_nSeconds});
    const bool bTooMany = m_waiting.size() > MOST;
    lock.unlock();
    if (bTooMany)
        End(0);
}

std::unique_ptr<CSMTPConnection> CWaitingConnections::TakeTo(const CSmartHost& target)
{
    const std::lock_guard lock(m_lock);
    for (auto it = m_waiting.rbegin(); it != m_waiting.rend(); ++it) {
        if (!it->pConnection->Reaches(target))
            continue;
        std::unique_ptr<CSMTPConnection> pConnection = std::move(it->pConnection);
        m_waiting.erase(std::prev(it.base()));
        return pConnection;
    }
    return nullptr;
}

void CWaitingConnections::EndOld() { End(Platform::TickCount()); }

void CWaitingConnections::EndAll() { End(UINT64_MAX); }

size_t CWaitingConnections::Count() const
{
    const std::lock_guard lock(m_lock);
    return m_waiting.size() + m_parting.size();
}

CWaitingConnections::~CWaitingConnections()
{
    Close(m_waiting);
    Close(m_parting);
}

/// Not by the destructor alone: to some the last record of TLS cannot be sent, for which that would wait.
void CWaitingConnections::Close(CWaiting& connections)
{
    const Platform::CWaitLimit round = Platform::CWaitLimit().For(LONGEST_ROUND);
    for (; !connections.empty(); connections.pop_front())
        connections.front().pConnection->client.SetLimit(round.AtMost(LONGEST_SEND));
}

/// Whose time has come by then, and who makes room. A host that says something while nothing was asked closes, or is
/// out of step.
void CWaitingConnections::End(uint64_t nBy)
{
    CWaiting ending, parting, closing;
    {
        const std::lock_guard lock(m_lock);
        MoveIf(m_waiting, closing, [](const SWaiting& one) { return one.pConnection->client.HasInput(); });
        while (m_waiting.size() > MOST || (!m_waiting.empty() && m_waiting.front().nUntil <= nBy))
            ending.splice(ending.end(), m_waiting, m_waiting.begin());
        parting.swap(m_parting);
    }
    const uint64_t nNow = Platform::TickCount();
    MoveIf(parting, closing,
           [nNow](const SWaiting& one) { return one.pConnection->client.HasInput() || one.nUntil <= nNow; });
    const Platform::CWaitLimit round = Platform::CWaitLimit().For(LONGEST_ROUND);
    for (SWaiting& one : ending) {
        one.nUntil = nNow + LONGEST_ANSWER;
        one.pConnection->client.SetLimit(round.AtMost(LONGEST_SEND));
        FailureOf([&] { one.pConnection->client.SendCommand("QUIT\r\n"); });
        one.pConnection->client.SetLimit({});
    }
    {
        const std::lock_guard lock(m_lock);
        m_parting.splice(m_parting.begin(), parting); // before what another thread has brought meanwhile
        m_parting.splice(m_parting.end(), ending);
        while (m_parting.size() > MOST)
            closing.splice(closing.end(), m_parting, m_parting.begin());
    }
    Close(closing);
}
