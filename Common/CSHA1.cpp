#include "Common/CSHA1.h"

#include <bit>

namespace {

uint32_t LoadBigEndian(const uint8_t* pBytes)
{
    return uint32_t{pBytes[0]} << 24 | uint32_t{pBytes[1]} << 16 | uint32_t{pBytes[2]} << 8 | uint32_t{pBytes[3]};
}

// FIPS 180-1 5 and 6: the function of round t with its constant.
uint32_t Mix(unsigned t, uint32_t b, uint32_t c, uint32_t d)
{
    switch (t / 20) {
    case 0:
        return ((b & c) | (~b & d)) + 0x5a827999;
    case 1:
        return (b ^ c ^ d) + 0x6ed9eba1;
    case 2:
        return ((b & c) | (b & d) | (c & d)) + 0x8f1bbcdc;
    default:
        return (b ^ c ^ d) + 0xca62c1d6;
    }
}

} // namespace

void CSHA1::Initialise()
{
    m_state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
    Restart();
}

void CSHA1::Transform(const uint8_t* pBlock)
{
    std::array<uint32_t, 80> schedule;
    for (size_t t = 0; t < 16; ++t)
        schedule[t] = LoadBigEndian(pBlock + 4 * t);
    for (size_t t = 16; t < schedule.size(); ++t)
        schedule[t] = std::rotl(schedule[t - 3] ^ schedule[t - 8] ^ schedule[t - 14] ^ schedule[t - 16], 1);
    auto [a, b, c, d, e] = m_state;
    for (unsigned t = 0; t < schedule.size(); ++t) {
        uint32_t dwNext = std::rotl(a, 5) + Mix(t, b, c, d) + e + schedule[t];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = dwNext;
    }
    m_state = {m_state[0] + a, m_state[1] + b, m_state[2] + c, m_state[3] + d, m_state[4] + e};
}
