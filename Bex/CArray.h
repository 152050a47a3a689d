#pragma once

#include "Bex/CIndexOutOfBoundsException.h"
#include "Bex/COutOfMemoryException.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Bex {

/// A growable array of plain values (bytes, characters, numbers), with 32-bit sizes. Used by one thread.
/// A refused allocation raises COutOfMemoryException and leaves the array as it was.
template <class T>
class CArray
{
    static_assert(std::is_trivially_copyable_v<T>);

public:
    CArray() = default;
    explicit CArray(std::basic_string_view<T> values) ///< at most as many as the sizes can tell
    {
        SetSize(static_cast<uint32_t>(values.size()));
        if (m_nSize > 0)
            std::memcpy(m_pData, values.data(), Bytes(m_nSize));
    }
    CArray(const CArray& other) : CArray(other.View()) { m_nGrowBy = other.m_nGrowBy; }
    CArray(CArray&& other) noexcept { Swap(other); }
    CArray& operator=(CArray other) noexcept
    {
        Swap(other);
        return *this;
    }
    ~CArray() { std::free(m_pData); }

    /// New elements are zero. Growing beyond the capacity takes at least nGrowBy more elements or, when that is 0, an
    /// eighth of the size (4 to 1024 elements); size 0 frees the storage. nGrowBy stays in force.
    void SetSize(uint32_t nSize, uint32_t nGrowBy)
    {
        m_nGrowBy = nGrowBy;
        SetSize(nSize);
    }
    void SetSize(uint32_t nSize)
    {
        if (nSize == 0) {
            std::free(std::exchange(m_pData, nullptr));
            m_nCapacity = 0;
        } else if (nSize > m_nCapacity) {
            Grow(nSize);
        }
        if (nSize > m_nSize)
            std::memset(static_cast<void*>(m_pData + m_nSize), 0, Bytes(nSize - m_nSize));
        m_nSize = nSize;
    }
    T& operator[](uint32_t nIndex)
    {
        Check(nIndex);
        return m_pData[nIndex];
    }
    const T& operator[](uint32_t nIndex) const
    {
        Check(nIndex);
        return m_pData[nIndex];
    }
    T* Data() { return m_pData; } ///< null while empty
    const T* Data() const { return m_pData; }
    uint32_t Size() const { return m_nSize; }
    uint32_t Capacity() const { return m_nCapacity; }
    void Swap(CArray& other) noexcept
    {
        std::swap(m_pData, other.m_pData);
        std::swap(m_nSize, other.m_nSize);
        std::swap(m_nCapacity, other.m_nCapacity);
        std::swap(m_nGrowBy, other.m_nGrowBy);
    }
    std::basic_string_view<T> View() const { return {m_pData, m_nSize}; }

private:
    static size_t Bytes(uint32_t nCount) { return size_t{nCount} * sizeof(T); }
    void Check(uint32_t nIndex) const
    {
        if (nIndex >= m_nSize)
            ThrowIndexOutOfBoundsException("Bex/CArray.h", __LINE__);
    }
    void Grow(uint32_t nSize)
    {
        uint32_t nGrow = m_nGrowBy != 0 ? m_nGrowBy : std::clamp<uint32_t>(m_nSize / 8, 4, 1024);
        uint64_t nWanted = m_nCapacity == 0 ? nSize : std::max<uint64_t>(nSize, uint64_t{m_nCapacity} + nGrow);
        uint32_t nCapacity = static_cast<uint32_t>(std::min<uint64_t>(nWanted, 0xFFFFFFFFu));
        void* pData = std::realloc(static_cast<void*>(m_pData), Bytes(nCapacity));
        if (pData == nullptr)
            ThrowOutOfMemoryException("Bex/CArray.h", __LINE__);
        m_pData = static_cast<T*>(pData);
        m_nCapacity = nCapacity;
    }

    T* m_pData = nullptr;
    uint32_t m_nSize = 0;
    uint32_t m_nCapacity = 0;
    uint32_t m_nGrowBy = 0;
};

} // namespace Bex
