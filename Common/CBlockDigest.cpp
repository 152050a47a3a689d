#include "Common/CBlockDigest.h"

#include <algorithm>
#include <cstring>

void CBlockDigest::Update(const void* pBytes, size_t nLength)
{
    const uint8_t* pNext = static_cast<const uint8_t*>(pBytes);
    size_t nFilled = m_nLength % m_block.size();
    m_nLength += nLength;
    while (nLength > 0) {
        if (nFilled == 0 && nLength >= m_block.size()) {
            Transform(pNext);
            pNext += m_block.size();
            nLength -= m_block.size();
            continue;
        }
        size_t nTaken = std::min(nLength, m_block.size() - nFilled);
        std::memcpy(m_block.data() + nFilled, pNext, nTaken);
        pNext += nTaken;
        nLength -= nTaken;
        nFilled += nTaken;
        if (nFilled == m_block.size()) {
            Transform(m_block.data());
            nFilled = 0;
        }
    }
}

// RFC 1321 3.1, 3.2 and FIPS 180-1 4: a one bit, zeros up to 8 bytes before the end of a block, the length in bits.
void CBlockDigest::Pad(std::endian order)
{
    std::array<uint8_t, 8> length;
    for (size_t i = 0; i < length.size(); ++i)
        length[i] = ByteOf(m_nLength * 8, i, order);
    static constexpr uint8_t PADDING[64] = {0x80};
    const size_t nFilled = m_nLength % m_block.size();
    Update(PADDING, nFilled < 56 ? 56 - nFilled : 120 - nFilled);
    Update(length.data(), length.size());
}
