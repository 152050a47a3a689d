#pragma once

#include "Bex/CEvent.h"
#include "Platform/CNativeThread.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace Bex {

/// A worker with the start and stop protocol that every thread of the daemon follows.
///
/// Owned by the controlling thread, which alone calls Start, Stop and Terminate. Workers override Body, which polls
/// StopRequested between units of work. With auto-delete the object was made with new and destroys itself when its
/// thread ends on its own, fails to start, or after Stop or Terminate; the controller then must not touch it again.
class CThread
{
public:
    explicit CThread(bool bAutoDelete = false);
    virtual ~CThread();
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

protected:
    virtual void OnStopRequest() {} ///< on the controlling thread, after the stop event was set
    virtual void Body() {}

public:
    bool Start(); ///< failures are logged; an object whose thread has ended can be started again
    bool Stop();  ///< asks, waits up to 1000 ms; true when the thread has ended
    /// Gives a thread up that does not end: it is left running, detached, and logged. True when there was one.
    /// The object itself must then stay alive as long as the thread uses it: only Destroy may end it.
    bool Terminate();
    bool HasFinished() const { return m_finished.IsSet(); }
    unsigned Id() const { return m_dwThreadID; } ///< 0 while no thread runs

    /// Destroys a worker. One whose abandoned thread still runs is destroyed by that thread when it ends.
    static void Destroy(std::unique_ptr<CThread> pThread);
    /// Whether the calling thread was terminated: it shall come to its end and hold nothing that others wait for.
    static bool IsCallerAbandoned();
    static bool AnyAbandoned(); ///< a terminated thread still runs: the process must end without clean-up

protected:
    bool ShallRun() const { return m_running.IsSet() && !m_stop.IsSet(); }
    const CEvent& StopEvent() const { return m_stop; }
    const CEvent& RunningEvent() const { return m_running; }

private:
    static void Procedure(void* pThread);
    void End();
    void Abandon();
    bool IsAbandoned();
    std::unique_ptr<Platform::CNativeThread> Release(); ///< takes handle and id off the object
    void DestroyIf(bool bDestroy);

    std::unique_ptr<Platform::CNativeThread> m_hThread;
    std::atomic<unsigned> m_dwThreadID = 0;
    bool m_bAutoDelete;
    CEvent m_running;
    CEvent m_finished;
    CEvent m_stop;
    std::mutex m_handover;     ///< between the ending thread and the controller
    bool m_bAbandoned = false; ///< a detached thread still uses the object
    bool m_bOrphaned = false;  ///< and destroys it when it ends
};

} // namespace Bex
