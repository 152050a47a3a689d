#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

/// Who did not answer lately, such as an address or a domain. Any thread. Whatever strangers make of it, at most 4,096
/// are remembered: the one whose time ends next makes room.
class CSilentPeers
{
public:
    static constexpr size_t MOST = 4096;

    void Note(std::string_view peer, uint64_t ui64Millis); ///< for that long from now
    void Forget(std::string_view peer);
    bool Contains(std::string_view peer) const { return MillisLeft(peer) > 0; }
    uint64_t MillisLeft(std::string_view peer) const; ///< for which it is remembered; 0: it is not
    size_t Count() const;

private:
    mutable std::mutex m_mutex;
    std::unordered_map<std::string, uint64_t> m_peers; ///< and until which TickCount
};
