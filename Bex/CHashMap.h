#pragma once

#include "Bex/CCriticalSection.h"
#include "Bex/CNoSuchElementException.h"
#include "Bex/COutOfMemoryException.h"
#include "Bex/CSimpleString.h"
#include "Bex/FrozenLine.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace Bex {

/// A map with string keys, compared byte for byte, and a lock of its own.
///
/// Every operation is atomic for other threads; a sequence of operations, or a walk, needs the caller to hold the
/// map's lock. The walk goes bucket by bucket and in a bucket in the order in which keys were first set.
template <class K, class V>
class CHashMap : public ISyncObject
{
public:
    static constexpr uint32_t BUCKETS = 101;
    static constexpr FrozenLine NO_KEY_LINE = 205;

    struct SNode
    {
        uint32_t dwHash;
        K key;
        V value;
        std::unique_ptr<SNode> pNext;
        uint32_t nBucket;
    };

    /// Walks all nodes. Hold the map's lock; a change of the map ends the walk's validity.
    class CIterator
    {
    public:
        explicit CIterator(const CHashMap& map) : m_map(map), m_pNode(map.FirstFrom(0)) {}
        explicit operator bool() const { return m_pNode != nullptr; }
        SNode* operator->() const { return m_pNode; }
        SNode& operator*() const { return *m_pNode; }
        CIterator& operator++()
        {
            m_pNode = m_pNode->pNext ? m_pNode->pNext.get() : m_map.FirstFrom(m_pNode->nBucket + 1);
            return *this;
        }

    private:
        const CHashMap& m_map;
        SNode* m_pNode;
    };

    CHashMap() = default;
    CHashMap(const CHashMap&) = delete;
    CHashMap& operator=(const CHashMap&) = delete;

    bool Lock(unsigned dwMillis) override { return m_pLock->Lock(dwMillis); }
    bool Lock() override { return m_pLock->Lock(); }
    bool Unlock() override { return m_pLock->Unlock(); }
    ~CHashMap() override { FreeNodes(); }
    virtual void SetModified() {} ///< called after every change

    void Set(const K& key, V value)
    {
        CScopedLock lock(*m_pLock);
        uint32_t dwHash = Hash(key);
        uint32_t nBucket = dwHash % BUCKETS;
        std::unique_ptr<SNode>* pLink = &m_buckets[nBucket];
        while (*pLink && !Matches(**pLink, dwHash, key))
            pLink = &(*pLink)->pNext;
        if (*pLink) {
            (*pLink)->value = std::move(value);
        } else {
            pLink->reset(new (std::nothrow) SNode{dwHash, key, std::move(value), nullptr, nBucket});
            if (!*pLink)
                ThrowOutOfMemoryException("Bex/CHashMap.h", __LINE__);
            ++m_nCount;
        }
        SetModified();
    }
    /// The node or null. Hold the lock as long as the node is used.
    SNode* Find(std::string_view key) const
    {
        CScopedLock lock(*m_pLock);
        uint32_t dwHash = Hash(key);
        SNode* pNode = m_buckets[dwHash % BUCKETS].get();
        while (pNode != nullptr && !Matches(*pNode, dwHash, key))
            pNode = pNode->pNext.get();
        return pNode;
    }
    bool Contains(std::string_view key) const { return Find(key) != nullptr; }
    bool Lookup(std::string_view key, V& value) const ///< copies the value; false when the key is missing
    {
        CScopedLock lock(*m_pLock);
        const SNode* pNode = Find(key);
        if (pNode != nullptr)
            value = pNode->value;
        return pNode != nullptr;
    }
    V Get(std::string_view key) const ///< CNoSuchElementException when the key is missing
    {
        CScopedLock lock(*m_pLock);
        const SNode* pNode = Find(key);
        if (pNode == nullptr)
            ThrowNoSuchElementException("Bex/CHashMap.h", NO_KEY_LINE);
        return pNode->value;
    }
    bool Remove(std::string_view key) ///< false when there is nothing to remove
    {
        CScopedLock lock(*m_pLock);
        uint32_t dwHash = Hash(key);
        std::unique_ptr<SNode>* pLink = &m_buckets[dwHash % BUCKETS];
        while (*pLink && !Matches(**pLink, dwHash, key))
            pLink = &(*pLink)->pNext;
        if (!*pLink)
            return false;
        std::unique_ptr<SNode> pGone = std::exchange(*pLink, nullptr); // the key may be the node's own
        *pLink = std::move(pGone->pNext);
        --m_nCount;
        SetModified();
        return true;
    }
    void RemoveAll()
    {
        CScopedLock lock(*m_pLock);
        FreeNodes();
        SetModified();
    }
    void Swap(CHashMap& other) ///< which nobody else uses
    {
        CScopedLock lock(*m_pLock);
        m_buckets.swap(other.m_buckets);
        m_nCount = other.m_nCount.exchange(m_nCount);
        SetModified();
    }
    uint32_t Count() const { return m_nCount; }
    ISyncObject& LockObject() const { return *m_pLock; } ///< to hold around a whole walk

    /// Times 33 plus the character as a signed 8-bit value, from 5381.
    static uint32_t Hash(std::string_view key)
    {
        uint32_t dwHash = 5381;
        for (char c : key)
            dwHash = dwHash * 33 + static_cast<uint32_t>(static_cast<signed char>(c));
        return dwHash;
    }

private:
    static std::unique_ptr<ISyncObject> MakeLock()
    {
        std::unique_ptr<ISyncObject> pLock(new (std::nothrow) CCriticalSection);
        if (!pLock)
            ThrowOutOfMemoryException("Bex/CHashMap.h", __LINE__);
        return pLock;
    }
    static bool Matches(const SNode& node, uint32_t dwHash, std::string_view key)
    {
        return node.dwHash == dwHash && std::string_view(node.key) == key;
    }
    SNode* FirstFrom(uint32_t nBucket) const
    {
        while (nBucket < BUCKETS && !m_buckets[nBucket])
            ++nBucket;
        return nBucket < BUCKETS ? m_buckets[nBucket].get() : nullptr;
    }
    void FreeNodes()
    {
        for (std::unique_ptr<SNode>& pHead : m_buckets) { // one by one: a chain must not free itself recursively
            while (pHead)
                pHead = std::unique_ptr<SNode>(std::move(pHead->pNext));
        }
        m_nCount = 0;
    }

    std::unique_ptr<ISyncObject> m_pLock = MakeLock();
    std::array<std::unique_ptr<SNode>, BUCKETS> m_buckets;
    std::atomic<uint32_t> m_nCount = 0;
};

} // namespace Bex
