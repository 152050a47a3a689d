#include "Common/CMD5.h"

#include <bit>

namespace {

constexpr std::array<uint32_t, 64> SINES = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

constexpr int SHIFTS[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

uint32_t LoadLittleEndian(const uint8_t* pBytes)
{
    return uint32_t{pBytes[0]} | uint32_t{pBytes[1]} << 8 | uint32_t{pBytes[2]} << 16 | uint32_t{pBytes[3]} << 24;
}

} // namespace

void CMD5::Initialise()
{
    m_state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    Restart();
}

void CMD5::Transform(const uint8_t* pBlock)
{
    auto [a, b, c, d] = m_state;
    for (unsigned i = 0; i < 64; ++i) {
        uint32_t dwMix = 0;
        unsigned nWord = 0;
        switch (i / 16) {
        case 0:
            dwMix = (b & c) | (~b & d);
            nWord = i;
            break;
        case 1:
            dwMix = (b & d) | (c & ~d);
            nWord = (5 * i + 1) % 16;
            break;
        case 2:
            dwMix = b ^ c ^ d;
            nWord = (3 * i + 5) % 16;
            break;
        default:
            dwMix = c ^ (b | ~d);
            nWord = (7 * i) % 16;
            break;
        }
        uint32_t dwSum = a + dwMix + SINES[i] + LoadLittleEndian(pBlock + size_t{4} * nWord);
        a = d;
        d = c;
        c = b;
        b += std::rotl(dwSum, SHIFTS[i / 16][i % 4]);
    }
    m_state = {m_state[0] + a, m_state[1] + b, m_state[2] + c, m_state[3] + d};
}
