#pragma once

#include "Bex/CCriticalSection.h"
#include "Bex/CDummyCriticalSection.h"
#include "Bex/CIndexOutOfBoundsException.h"
#include "Bex/COutOfMemoryException.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

namespace Bex {

/// A doubly linked list with a lock of its own.
///
/// Every operation is atomic for other threads; a sequence of operations needs the caller to hold the list's lock.
/// A list made without the internal lock belongs to one thread.
template <class T>
class CList : public ISyncObject
{
    struct SNode
    {
        T value;
        SNode* pPrevious;
        SNode* pNext;
    };

public:
    /// Walks from the head without locking: hold the lock, or own the list alone.
    class CIterator
    {
    public:
        explicit CIterator(SNode* pNode) : m_pNode(pNode) {}
        T& operator*() const { return m_pNode->value; }
        T* operator->() const { return &m_pNode->value; }
        CIterator& operator++()
        {
            m_pNode = m_pNode->pNext;
            return *this;
        }
        bool operator==(const CIterator&) const = default;

    private:
        friend class CList;
        SNode* m_pNode;
    };

    explicit CList(bool bInternalLock = true) : m_bInternalLock(bInternalLock), m_pLock(MakeLock(bInternalLock)) {}
    CList(const CList& other) : CList(other.m_bInternalLock) { Splice(CopyOf(other)); }
    CList(CList&& other) noexcept(false) : CList(other.m_bInternalLock) { Splice(other.Detach()); }
    CList& operator=(const CList& other)
    {
        if (this != &other)
            Replace(CopyOf(other));
        return *this;
    }
    CList& operator=(CList&& other) noexcept(false)
    {
        if (this != &other)
            Replace(other.Detach());
        return *this;
    }

    bool Lock(unsigned dwMillis) override { return m_pLock->Lock(dwMillis); }
    bool Lock() override { return m_pLock->Lock(); }
    bool Unlock() override { return m_pLock->Unlock(); }
    ~CList() override = default;
    virtual void SetModified() {} ///< called after every change

    void Append(T value)
    {
        SChain chain;
        chain.Append(std::move(value));
        Splice(std::move(chain));
    }
    void Prepend(T value)
    {
        SNode* pNode = NewNode(std::move(value));
        CScopedLock lock(*m_pLock);
        pNode->pNext = m_chain.pHead;
        (m_chain.pHead != nullptr ? m_chain.pHead->pPrevious : m_chain.pTail) = pNode;
        m_chain.pHead = pNode;
        ++m_chain.nCount;
        Changed();
    }
    /// Every element that the other list (or this one) holds now, in order; all or, when memory runs out, none.
    void AppendAll(const CList& other) { Splice(CopyOf(other)); }
    /// Takes the first element off; false when there is none.
    bool PopFirst(T& value)
    {
        CScopedLock lock(*m_pLock);
        if (m_chain.pHead == nullptr)
            return false;
        value = std::move(m_chain.pHead->value);
        Unlink(m_chain.pHead);
        Changed();
        return true;
    }
    void RemoveAll() { Replace({}); }
    void Swap(CList& other) ///< which nobody else uses
    {
        CScopedLock lock(*m_pLock);
        m_chain.Swap(other.m_chain);
        other.m_nCount = other.m_chain.nCount;
        Changed();
    }
    /// Removes every element equal to the value; the count of those removed.
    uint32_t RemoveEqual(const T& value)
    {
        CScopedLock lock(*m_pLock);
        const T wanted(value); // NOLINT: the argument may be one of the elements
        const uint32_t nBefore = m_chain.nCount;
        for (SNode* pNode = m_chain.pHead; pNode != nullptr;) {
            SNode* pNext = pNode->pNext;
            if (pNode->value == wanted)
                Unlink(pNode);
            pNode = pNext;
        }
        const uint32_t nRemoved = nBefore - m_chain.nCount;
        if (nRemoved > 0)
            Changed();
        return nRemoved;
    }
    /// The next one moves into its place.
    CIterator Remove(CIterator position)
    {
        CScopedLock lock(*m_pLock);
        CIterator next(position.m_pNode->pNext);
        Unlink(position.m_pNode);
        Changed();
        return next;
    }
    /// A copy of the element; CIndexOutOfBoundsException at or beyond the count.
    T At(uint32_t nIndex) const
    {
        CScopedLock lock(*m_pLock);
        if (nIndex >= m_chain.nCount)
            ThrowIndexOutOfBoundsException("Bex/CList.h", __LINE__);
        const SNode* pNode = m_chain.pHead;
        while (nIndex-- > 0)
            pNode = pNode->pNext;
        return pNode->value;
    }
    /// Byte for byte, case included.
    bool ContainsExact(const T& value) const
    {
        CScopedLock lock(*m_pLock);
        for (const SNode* pNode = m_chain.pHead; pNode != nullptr; pNode = pNode->pNext) {
            if (pNode->value == value)
                return true;
        }
        return false;
    }
    uint32_t Count() const { return m_nCount; }
    bool IsEmpty() const { return m_nCount == 0; }

    CIterator begin() const { return CIterator(m_chain.pHead); }
    CIterator end() const { return CIterator(nullptr); }
    ISyncObject& LockObject() const { return *m_pLock; } ///< to hold around a whole walk

private:
    static std::unique_ptr<ISyncObject> MakeLock(bool bInternalLock)
    {
        std::unique_ptr<ISyncObject> pLock;
        if (bInternalLock)
            pLock.reset(new (std::nothrow) CCriticalSection);
        else
            pLock.reset(new (std::nothrow) CDummyCriticalSection);
        if (!pLock)
            ThrowOutOfMemoryException("Bex/CList.h", __LINE__);
        return pLock;
    }
    static SNode* NewNode(T value)
    {
        auto* pNode = new (std::nothrow) SNode{std::move(value), nullptr, nullptr};
        if (pNode == nullptr)
            ThrowOutOfMemoryException("Bex/CList.h", __LINE__);
        return pNode;
    }
    /// Linked nodes and their owner. One list's lock is never taken under another's: chains go from list to list.
    struct SChain
    {
        SNode* pHead = nullptr;
        SNode* pTail = nullptr;
        uint32_t nCount = 0;

        SChain() = default;
        SChain(SChain&& other) noexcept { Swap(other); }
        ~SChain()
        {
            while (pHead != nullptr)
                delete std::exchange(pHead, pHead->pNext);
        }
        void Swap(SChain& other) noexcept
        {
            std::swap(pHead, other.pHead);
            std::swap(pTail, other.pTail);
            std::swap(nCount, other.nCount);
        }
        void Append(T value)
        {
            SNode* pNode = NewNode(std::move(value));
            pNode->pPrevious = pTail;
            (pTail != nullptr ? pTail->pNext : pHead) = pNode;
            pTail = pNode;
            ++nCount;
        }
    };
    static SChain CopyOf(const CList& list)
    {
        SChain chain;
        CScopedLock lock(*list.m_pLock);
        for (const SNode* pNode = list.m_chain.pHead; pNode != nullptr; pNode = pNode->pNext)
            chain.Append(pNode->value);
        return chain;
    }
    SChain Detach()
    {
        SChain chain;
        CScopedLock lock(*m_pLock);
        chain.Swap(m_chain);
        Changed();
        return chain;
    }
    void Replace(SChain chain)
    {
        CScopedLock lock(*m_pLock);
        m_chain.Swap(chain);
        Changed();
    }
    void Splice(SChain chain)
    {
        if (chain.pHead == nullptr)
            return;
        CScopedLock lock(*m_pLock);
        chain.pHead->pPrevious = m_chain.pTail;
        (m_chain.pTail != nullptr ? m_chain.pTail->pNext : m_chain.pHead) = std::exchange(chain.pHead, nullptr);
        m_chain.pTail = chain.pTail;
        m_chain.nCount += chain.nCount;
        Changed();
    }
    void Unlink(SNode* pNode)
    {
        (pNode->pPrevious != nullptr ? pNode->pPrevious->pNext : m_chain.pHead) = pNode->pNext;
        (pNode->pNext != nullptr ? pNode->pNext->pPrevious : m_chain.pTail) = pNode->pPrevious;
        --m_chain.nCount;
        delete pNode;
    }
    void Changed()
    {
        m_nCount = m_chain.nCount;
        SetModified();
    }

    bool m_bInternalLock;
    SChain m_chain;
    std::atomic<uint32_t> m_nCount = 0; ///< of the chain, for readers without the lock
    std::unique_ptr<ISyncObject> m_pLock;
};

} // namespace Bex
