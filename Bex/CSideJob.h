#pragma once

#include "Platform/CNativeThread.h"

#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>

namespace Bex {

class CThread;

/// Does one job at a time for a worker, on a thread beside the worker's own, which goes on meanwhile.
///
/// Owned by the worker and used on its thread. Whether the worker was stopped or given up holds for its job, too
/// (CThread::EndIfAbandoned). The thread is made with the first job and joined by the destructor, after the job.
class CSideJob
{
public:
    CSideJob() = default;
    ~CSideJob();
    CSideJob(const CSideJob&) = delete;
    CSideJob& operator=(const CSideJob&) = delete;

    /// Once the one before has been waited for. False, and nothing is begun: no thread is to be had (LastError).
    bool Begin(std::function<void()> job);
    bool IsBegun() const { return m_bBegun; } ///< and was not waited for yet
    bool HasEnded();                          ///< the job that was begun
    void Wait();                              ///< for its end; raises what the job has raised

private:
    static void Work(void* pSelf);

    std::mutex m_lock; ///< over what both threads use
    std::condition_variable m_changed;
    std::function<void()> m_job; ///< empty: none is to be done
    std::exception_ptr m_pRaised;
    bool m_bEnd = false;

    bool m_bBegun = false;
    CThread* m_pWorker = nullptr;
    std::unique_ptr<Platform::CNativeThread> m_hThread;
};

} // namespace Bex
