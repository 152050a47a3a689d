#pragma once

namespace Bex {

/// What containers and tables lock with.
class ISyncObject
{
public:
    virtual bool Lock(unsigned dwMillis) = 0; ///< true when the lock was taken within the time
    virtual bool Lock() = 0;
    virtual bool Unlock() = 0;
    virtual ~ISyncObject() = default;
};

/// Holds a lock for the length of a scope.
class CScopedLock
{
public:
    explicit CScopedLock(ISyncObject& lock) : m_lock(lock) { m_lock.Lock(); }
    ~CScopedLock() { m_lock.Unlock(); }
    CScopedLock(const CScopedLock&) = delete;
    CScopedLock& operator=(const CScopedLock&) = delete;

private:
    ISyncObject& m_lock;
};

} // namespace Bex
