#pragma once

#include "Common/CBlockDigest.h"

/// The SHA-1 digest (FIPS 180-1), fed piece by piece. A value; used by one thread.
class CSHA1 final : public CBlockDigest
{
public:
    static constexpr size_t DIGEST_LENGTH = 20;
    using Digest = std::array<uint8_t, DIGEST_LENGTH>;

    CSHA1() { Initialise(); }
    void Initialise();
    Digest Finalise() { return Finish(m_state, std::endian::big); } ///< afterwards Initialise before the next use

private:
    void Transform(const uint8_t* pBlock) override;

    std::array<uint32_t, 5> m_state;
};
