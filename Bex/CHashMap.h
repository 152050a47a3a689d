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
#include <unordered_map>
#include <utility>

namespace Bex {

/// A map with string keys, compared byte for byte, and a lock of its own.
///
/// Every operation is atomic for other threads; a sequence of operations, or a walk, needs the caller to hold the
/// map's lock. The walk goes bucket by bucket and in a bucket in the order in which keys were first set; that is all
/// that the buckets are for. A key is found by an index beside them, in the same time however many there are.
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
        SNode* pNext; ///< in its bucket
        SNode* pPrevious;
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
            m_pNode = m_pNode->pNext != nullptr ? m_pNode->pNext : m_map.FirstFrom(m_pNode->nBucket + 1);
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
    ~CHashMap() override = default;
    virtual void SetModified() {} ///< called after every change

    void Set(const K& key, V value)
    {
        CScopedLock lock(*m_pLock);
        if (SNode* pNode = Find(key))
            pNode->value = std::move(value);
        else
            Append(key, std::move(value));
        SetModified();
    }
    /// The node or null. Hold the lock as long as the node is used.
    SNode* Find(std::string_view key) const
    {
        CScopedLock lock(*m_pLock);
        const auto found = m_nodes.find(key);
        return found != m_nodes.end() ? found->second.get() : nullptr;
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
        const auto gone = m_nodes.extract(key); // lives on to the end: the key may be the node's own
        if (gone.empty())
            return false;
        Unlink(*gone.mapped());
        --m_nCount;
        SetModified();
        return true;
    }
    void RemoveAll()
    {
        CScopedLock lock(*m_pLock);
        m_buckets = {};
        m_nodes.clear();
        m_nCount = 0;
        SetModified();
    }
    void Swap(CHashMap& other) ///< which nobody else uses
    {
        CScopedLock lock(*m_pLock);
        m_buckets.swap(other.m_buckets);
        m_nodes.swap(other.m_nodes);
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
    struct SBucket
    {
        SNode* pFirst = nullptr;
        SNode* pLast = nullptr;
    };

    static std::unique_ptr<ISyncObject> MakeLock()
    {
        std::unique_ptr<ISyncObject> pLock(new (std::nothrow) CCriticalSection);
        if (!pLock)
            ThrowOutOfMemoryException("Bex/CHashMap.h", __LINE__);
        return pLock;
    }
    void Append(const K& key, V value)
    {
        const uint32_t dwHash = Hash(key);
        SBucket& bucket = m_buckets[dwHash % BUCKETS];
        std::unique_ptr<SNode> pNode(new (std::nothrow)
                                         SNode{dwHash, key, std::move(value), nullptr, bucket.pLast, dwHash % BUCKETS});
        SNode* const pNew = pNode.get();
        if (pNew == nullptr || !Enter(std::move(pNode)))
            ThrowOutOfMemoryException("Bex/CHashMap.h", __LINE__);
        (bucket.pLast != nullptr ? bucket.pLast->pNext : bucket.pFirst) = pNew;
        bucket.pLast = pNew;
        ++m_nCount;
    }
    bool Enter(std::unique_ptr<SNode> pNode) ///< into the index; false: no memory
    {
        try {
            const std::string_view key = pNode->key;
            return m_nodes.try_emplace(key, std::move(pNode)).second;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    void Unlink(const SNode& node)
    {
        SBucket& bucket = m_buckets[node.nBucket];
        (node.pPrevious != nullptr ? node.pPrevious->pNext : bucket.pFirst) = node.pNext;
        (node.pNext != nullptr ? node.pNext->pPrevious : bucket.pLast) = node.pPrevious;
    }
    SNode* FirstFrom(uint32_t nBucket) const
    {
        while (nBucket < BUCKETS && m_buckets[nBucket].pFirst == nullptr)
            ++nBucket;
        return nBucket < BUCKETS ? m_buckets[nBucket].pFirst : nullptr;
    }

    std::unique_ptr<ISyncObject> m_pLock = MakeLock();
    std::array<SBucket, BUCKETS> m_buckets;
    std::unordered_map<std::string_view, std::unique_ptr<SNode>> m_nodes; ///< by the keys that they hold
    std::atomic<uint32_t> m_nCount = 0;
};

} // namespace Bex
