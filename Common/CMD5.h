#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The MD5 digest (RFC 1321), fed piece by piece. A value; used by one thread.
class CMD5
{
public:
    static constexpr size_t DIGEST_LENGTH = 16;
    using Digest = std::array<uint8_t, DIGEST_LENGTH>;

    CMD5() { Initialise(); }
    void Initialise();
    void Update(const void* pBytes, size_t nLength);
    Digest Finalise(); ///< afterwards Initialise before the next use

private:
    void Transform(const uint8_t* pBlock);

    std::array<uint32_t, 4> m_state;
    uint64_t m_nLength; ///< bytes so far
    std::array<uint8_t, 64> m_block;
};
