#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Tells whether bytes are the same as others were, in whatever pieces they come. Fast, and no protection from somebody
/// who looks for two contents with one value. Used by one thread.
class CContentDigest
{
public:
    void Add(const void* pData, size_t nBytes);
    uint64_t Value() const; ///< of all bytes so far

private:
    static constexpr size_t BLOCK_SIZE = 4096;

    uint64_t m_nValue = 0; ///< of the whole blocks
    std::array<char, BLOCK_SIZE> m_block;
    size_t m_nInBlock = 0;
};
