#include "Bex/CSideJob.h"

#include "Bex/CThread.h"

#include <utility>

namespace Bex {

CSideJob::~CSideJob()
{
    if (!m_hThread)
        return;
    {
        const std::lock_guard lock(m_lock);
        m_bEnd = true;
    }
    m_changed.notify_all();
    m_hThread->Join();
}

bool CSideJob::Begin(std::function<void()> job)
{
    m_pWorker = CThread::Current();
    if (!m_hThread)
        m_hThread = Platform::CNativeThread::Create(&Work, this);
    if (!m_hThread)
        return false;
    {
        const std::lock_guard lock(m_lock);
        m_job = std::move(job);
    }
    m_bBegun = true;
    m_changed.notify_all();
    return true;
}

bool CSideJob::HasEnded()
{
    const std::lock_guard lock(m_lock);
    return !m_job;
}

void CSideJob::Wait()
{
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [this] { return !m_job; });
    m_bBegun = false;
    if (const std::exception_ptr pRaised = std::exchange(m_pRaised, nullptr))
        std::rethrow_exception(pRaised);
}

void CSideJob::Work(void* pSelf)
{
    auto& self = *static_cast<CSideJob*>(pSelf);
    std::unique_lock lock(self.m_lock);
    for (;;) {
        self.m_changed.wait(lock, [&self] { return self.m_job || self.m_bEnd; });
        if (!self.m_job)
            return;
        lock.unlock();
        try {
            const CThread::CPart part(self.m_pWorker);
            self.m_job();
        } catch (...) { // an abandonment, too: the worker meets it when it waits
            self.m_pRaised = std::current_exception();
        }
        lock.lock();
        self.m_job = nullptr;
        self.m_changed.notify_all();
    }
}

} // namespace Bex
