#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The SHA-1 digest (FIPS 180-1), fed piece by piece. A value; used by one thread.
class CSHA1
{
public:
    static constexpr size_t DIGEST_LENGTH = 20;
    using Digest = std::array<uint8_t, DIGEST_LENGTH>;

    CSHA1() { Initialise(); }
    void Initialise();
    void Update(const void* pBytes, size_t nLength);
    Digest Finalise(); ///< afterwards Initialise before the next use

private:
    void Transform(const uint8_t* pBlock);

    std::array<uint32_t, 5> m_state;
    uint64_t m_nLength; ///< bytes so far
    std::array<uint8_t, 64> m_block;
};
