#include "Common/CContentDigest.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <string_view>

namespace {

uint64_t Chained(uint64_t nValue, std::string_view block)
{
    constexpr uint64_t ODD = 0x9E3779B97F4A7C15; // spreads each bit over the upper ones
    return (nValue ^ std::hash<std::string_view>()(block)) * ODD;
}

} // namespace

void CContentDigest::Add(const void* pData, size_t nBytes)
{
    std::string_view rest(static_cast<const char*>(pData), nBytes);
    while (!rest.empty()) {
        if (m_nInBlock == 0 && rest.size() >= BLOCK_SIZE) {
            m_nValue = Chained(m_nValue, rest.substr(0, BLOCK_SIZE));
            rest.remove_prefix(BLOCK_SIZE);
            continue;
        }
        const size_t nPart = std::min(rest.size(), BLOCK_SIZE - m_nInBlock);
        std::memcpy(m_block.data() + m_nInBlock, rest.data(), nPart);
        rest.remove_prefix(nPart);
        m_nInBlock = (m_nInBlock + nPart) % BLOCK_SIZE;
        if (m_nInBlock == 0)
            m_nValue = Chained(m_nValue, {m_block.data(), BLOCK_SIZE});
    }
}

uint64_t CContentDigest::Value() const { return Chained(m_nValue, {m_block.data(), m_nInBlock}); }
