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
    CList(const CList& other) : CList(other.m_bInternalLock) { AppendAll(other); }
    CList(CList&& other) noexcept(false) : CList(other.m_bInternalLock) { TakeNodes(other); }
    CList& operator=(const CList& other)
    {
        if (this != &other) {
            RemoveAll();
            AppendAll(other);
        }
        return *this;
    }
    CList& operator=(CList&& other) noexcept(false)
    {
        if (this != &other) {
            RemoveAll();
            TakeNodes(other);
        }
        return *this;
    }

    bool Lock(unsigned dwMillis) override { return m_pLock->Lock(dwMillis); }
    bool Lock() override { return m_pLock->Lock(); }
    bool Unlock() override { return m_pLock->Unlock(); }
    ~CList() override { FreeNodes(); }
    virtual void SetModified() {} ///< called after every change

    void Append(T value)
    {
        CScopedLock lock(*m_pLock);
        Link(NewNode(std::move(value), m_pTail, nullptr));
        SetModified();
    }
    void Prepend(T value)
    {
        CScopedLock lock(*m_pLock);
        SNode* pNode = NewNode(std::move(value), nullptr, m_pHead);
        (m_pHead != nullptr ? m_pHead->pPrevious : m_pTail) = pNode;
        m_pHead = pNode;
        ++m_nCount;
        SetModified();
    }
    /// Every element of the other list, in order, which is walked under its lock.
    void AppendAll(const CList& other)
    {
        CScopedLock lock(*other.m_pLock);
        for (const SNode* pNode = other.m_pHead; pNode != nullptr; pNode = pNode->pNext)
            Append(pNode->value);
    }
    /// Takes the first element off; false when there is none.
    bool PopFirst(T& value)
    {
        CScopedLock lock(*m_pLock);
        if (m_pHead == nullptr)
            return false;
        value = std::move(m_pHead->value);
        Unlink(m_pHead);
        SetModified();
        return true;
    }
    void RemoveAll()
    {
        CScopedLock lock(*m_pLock);
        FreeNodes();
        SetModified();
    }
    /// Removes every element equal to the value; the count of those removed.
    uint32_t RemoveEqual(const T& value)
    {
        CScopedLock lock(*m_pLock);
        const T wanted(value); // the argument may be one of the elements
        uint32_t nBefore = m_nCount;
        for (SNode* pNode = m_pHead; pNode != nullptr;) {
            SNode* pNext = pNode->pNext;
            if (pNode->value == wanted)
                Unlink(pNode);
            pNode = pNext;
        }
        SetModified();
        return nBefore - m_nCount;
    }
    /// The next one moves into its place.
    CIterator Remove(CIterator position)
    {
        CScopedLock lock(*m_pLock);
        CIterator next(position.m_pNode->pNext);
        Unlink(position.m_pNode);
        SetModified();
        return next;
    }
    /// A copy of the element; CIndexOutOfBoundsException at or beyond the count.
    T At(uint32_t nIndex) const
    {
        CScopedLock lock(*m_pLock);
        if (nIndex >= m_nCount)
            ThrowIndexOutOfBoundsException("Bex/CList.h", __LINE__);
        const SNode* pNode = m_pHead;
        while (nIndex-- > 0)
            pNode = pNode->pNext;
        return pNode->value;
    }
    /// Byte for byte, case included.
    bool ContainsExact(const T& value) const
    {
        CScopedLock lock(*m_pLock);
        for (const SNode* pNode = m_pHead; pNode != nullptr; pNode = pNode->pNext) {
            if (pNode->value == value)
                return true;
        }
        return false;
    }
    uint32_t Count() const { return m_nCount; }
    bool IsEmpty() const { return m_nCount == 0; }

    CIterator begin() const { return CIterator(m_pHead); }
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
    static SNode* NewNode(T value, SNode* pPrevious, SNode* pNext)
    {
        auto* pNode = new (std::nothrow) SNode{std::move(value), pPrevious, pNext};
        if (pNode == nullptr)
            ThrowOutOfMemoryException("Bex/CList.h", __LINE__);
        return pNode;
    }
    void Link(SNode* pNode)
    {
        (m_pTail != nullptr ? m_pTail->pNext : m_pHead) = pNode;
        m_pTail = pNode;
        ++m_nCount;
    }
    void Unlink(SNode* pNode)
    {
        (pNode->pPrevious != nullptr ? pNode->pPrevious->pNext : m_pHead) = pNode->pNext;
        (pNode->pNext != nullptr ? pNode->pNext->pPrevious : m_pTail) = pNode->pPrevious;
        --m_nCount;
        delete pNode;
    }
    void FreeNodes()
    {
        while (m_pHead != nullptr) {
            SNode* pNode = m_pHead;
            m_pHead = pNode->pNext;
            delete pNode;
        }
        m_pTail = nullptr;
        m_nCount = 0;
    }
    void TakeNodes(CList& other)
    {
        CScopedLock lock(*other.m_pLock);
        m_pHead = std::exchange(other.m_pHead, nullptr);
        m_pTail = std::exchange(other.m_pTail, nullptr);
        m_nCount = other.m_nCount.exchange(0);
        SetModified();
        other.SetModified();
    }

    bool m_bInternalLock;
    std::atomic<uint32_t> m_nCount = 0;
    SNode* m_pHead = nullptr;
    SNode* m_pTail = nullptr;
    std::unique_ptr<ISyncObject> m_pLock;
};

} // namespace Bex
