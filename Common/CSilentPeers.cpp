#include "Common/CSilentPeers.h"

#include "Platform/Clock.h"

#include <algorithm>

void CSilentPeers::Note(std::string_view peer, uint64_t ui64Millis)
{
    const std::lock_guard lock(m_mutex);
    const uint64_t ui64Now = Platform::TickCount();
    const std::string strPeer(peer);
    if (m_peers.size() >= MOST)
        std::erase_if(m_peers, [ui64Now](const auto& entry) { return entry.second <= ui64Now; });
    if (m_peers.size() >= MOST && !m_peers.contains(strPeer))
        m_peers.erase(std::ranges::min_element(m_peers, {}, [](const auto& entry) { return entry.second; }));
    m_peers[strPeer] = ui64Now + ui64Millis;
}

void CSilentPeers::Forget(std::string_view peer)
{
    const std::lock_guard lock(m_mutex);
    m_peers.erase(std::string(peer));
}

uint64_t CSilentPeers::MillisLeft(std::string_view peer) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_peers.find(std::string(peer));
    const uint64_t ui64Now = Platform::TickCount();
    return found == m_peers.end() ? 0 : found->second - std::min(found->second, ui64Now);
}

size_t CSilentPeers::Count() const
{
    const std::lock_guard lock(m_mutex);
    const uint64_t ui64Now = Platform::TickCount();
    return static_cast<size_t>(
        std::ranges::count_if(m_peers, [ui64Now](const auto& entry) { return entry.second > ui64Now; }));
}
