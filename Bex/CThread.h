#pragma once

#include "Bex/CEvent.h"
#include "Platform/CNativeThread.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

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
    /// Failures are logged; an object whose thread has ended can be started again. The name is its activity's.
    bool Start(std::string_view name = "worker");
    void RequestStop(); ///< asks only; for several workers that are to end at the same time
    /// Asks and waits, as long as told; true when no thread runs, at once when none ever did.
    bool Stop(unsigned dwMillis = STOP_WAIT_MILLIS);
    static constexpr unsigned STOP_WAIT_MILLIS = 1000;

    /// As long as it lives, the calling thread is one more of that worker's, which outlives it; null: of none's.
    class CPart
    {
    public:
        explicit CPart(CThread* pWorker);
        ~CPart();
        CPart(const CPart&) = delete;
        CPart& operator=(const CPart&) = delete;
    };
    /// Gives a thread up that does not end: it is left running, detached, and logged. True when there was one.
    /// The object itself must then stay alive as long as the thread uses it: only Destroy may end it.
    bool Terminate();
    bool HasFinished(unsigned dwMillis = 0) const { return m_finished.Wait(dwMillis); } ///< within that time
    unsigned Id() const;                                                                ///< 0 while no thread runs

    /// Destroys a worker. One whose abandoned thread still runs is destroyed by that thread when it ends.
    static void Destroy(std::unique_ptr<CThread> pThread);
    /// Whether the calling thread was terminated: it shall come to its end and hold nothing that others wait for.
    /// Costs next to nothing, so that every step may ask; false on a thread that is none of these.
    static bool IsCallerAbandoned();
    /// Raises CAbandonment on a thread that was terminated. Whatever others could see asks this first: files that get
    /// or lose a name, flushes, programs that are started, commands to servers.
    static void EndIfAbandoned();
    static bool IsCallerStopped(); ///< the calling thread was asked to stop, or terminated; false on other threads
    static CThread* Current();     ///< the worker whose thread the calling one is; null: it is none's
    static bool AnyAbandoned();    ///< a terminated thread still runs: the process must end without clean-up

protected:
    bool ShallRun() const { return m_running.IsSet() && !m_stop.IsSet(); }
    const CEvent& StopEvent() const { return m_stop; }

private:
    enum class EState {
        Idle,    ///< no thread, or one that has let go of the object
        Running, ///< may be asked to stop
        Ended,   ///< after a stop request: the controller lets go of the handle
        GivenUp  ///< without a handle; the thread still uses the object
    };

    static void Procedure(void* pThread);
    void End();
    void LetGo();
    void GiveUp(bool bOrphaned);

    bool m_bAutoDelete;
    CEvent m_running;
    CEvent m_finished;
    CEvent m_stop;
    mutable std::mutex m_lock;                  ///< over all that follows; between the ending thread and the controller
    std::atomic<EState> m_state = EState::Idle; ///< may be read without the lock
    std::string m_strName;
    bool m_bOrphaned = false; ///< a thread that was given up destroys the object when it ends
    std::unique_ptr<Platform::CNativeThread> m_hThread;
};

} // namespace Bex
