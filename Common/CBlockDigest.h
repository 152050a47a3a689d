#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

/// What MD5 and SHA-1 do alike: they collect the text in blocks of 64 bytes and end it with a padding that tells its
/// length. A value; used by one thread.
class CBlockDigest
{
public:
    void Update(const void* pBytes, size_t nLength);

protected:
    ~CBlockDigest() = default;
    void Restart() { m_nLength = 0; }
    virtual void Transform(const uint8_t* pBlock) = 0; ///< takes one block into the state

    /// Ends the text, whose last blocks go into the state, and gives the state as bytes.
    template <size_t WORDS>
    std::array<uint8_t, 4 * WORDS> Finish(const std::array<uint32_t, WORDS>& state, std::endian order)
    {
        Pad(order);
        std::array<uint8_t, 4 * WORDS> digest;
        for (size_t i = 0; i < digest.size(); ++i)
            digest[i] = ByteOf(state[i / 4], i % 4, order);
        return digest;
    }

private:
    template <class TNumber>
    static uint8_t ByteOf(TNumber number, size_t nIndex, std::endian order)
    {
        return static_cast<uint8_t>(number >>
                                    (8 * (order == std::endian::little ? nIndex : sizeof(TNumber) - 1 - nIndex)));
    }
    void Pad(std::endian order);

    uint64_t m_nLength = 0; ///< bytes so far
    std::array<uint8_t, 64> m_block;
};
