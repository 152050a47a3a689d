#pragma once

#include "Common/CBlockDigest.h"

/// The MD5 digest (RFC 1321), fed piece by piece. A value; used by one thread.
class CMD5 final : public CBlockDigest
{
public:
    static constexpr size_t DIGEST_LENGTH = 16;
    using Digest = std::array<uint8_t, DIGEST_LENGTH>;

    CMD5() { Initialise(); }
    void Initialise();
    Digest Finalise() { return Finish(m_state, std::endian::little); } ///< afterwards Initialise before the next use

private:
    void Transform(const uint8_t* pBlock) override;

    std::array<uint32_t, 4> m_state;
};
