#include "Bex/CThread.h"

#include "Bex/CException.h"
#include "Bex/Log.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"

#include <cstdlib>
#include <utility>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CThread";
constexpr int HANDLE_PRESENT_LINE = 101;
constexpr int ID_PRESENT_LINE = 106;
constexpr int CREATE_LINE = 118;
constexpr int STOP_LINE = 151;
constexpr int TERMINATE_LINE = 205;
constexpr unsigned STOP_WAIT_MILLIS = 1000;

std::atomic<unsigned> s_nAbandoned = 0;
thread_local CThread* t_pCurrent = nullptr; ///< whose body the calling thread runs

} // namespace

CThread::CThread(bool bAutoDelete) : m_bAutoDelete(bAutoDelete) {}

CThread::~CThread()
{
    const std::unique_ptr<Platform::CNativeThread> hThread = Release(); // once the ending thread is out of the object
    if (hThread && m_finished.IsSet())
        hThread->Join();
}

bool CThread::Start()
{
    std::unique_lock lock(m_handover); // the thread must not let go of a handle that is not stored yet
    if (m_hThread || m_bAbandoned) {
        LogError(MainLog(), "m_hThread != NULL in %s:%d", SOURCE_FILE, HANDLE_PRESENT_LINE);
        return false;
    }
    if (m_dwThreadID != 0) {
        LogError(MainLog(), "m_dwThreadID != 0 in %s:%d", SOURCE_FILE, ID_PRESENT_LINE);
        return false;
    }
    m_running.Reset();
    m_stop.Reset();
    m_finished.Reset();
    m_hThread = Platform::CNativeThread::Create(&Procedure, this);
    if (m_hThread) {
        m_dwThreadID = m_hThread->Id();
        return true;
    }
    const Platform::SError error = Platform::LastError();
    lock.unlock();
    LogError(MainLog(), "_beginthreadex failed in %s:%d with error %d", SOURCE_FILE, CREATE_LINE,
             static_cast<int>(error.dwSysError));
    DestroyIf(m_bAutoDelete);
    return false;
}

bool CThread::Stop()
{
    try {
        m_stop.Set();
        m_running.Reset();
        OnStopRequest();
        if (!m_finished.Wait(STOP_WAIT_MILLIS)) {
            LogError(MainLog(), "Wait timed out in %s:%d", SOURCE_FILE, STOP_LINE);
            return false;
        }
    } catch (const CException& exception) {
        char text[1000];
        exception.GetMessage(text, sizeof(text));
        LogError(MainLog(), "%s", text);
        return false;
    }
    if (const auto hThread = Release())
        hThread->Join(); // it has nothing left to do
    DestroyIf(m_bAutoDelete);
    return true;
}

bool CThread::Terminate()
{
    std::unique_lock lock(m_handover);
    if (!m_hThread)
        return false;
    m_running.Reset();
    if (m_finished.IsSet()) {
        lock.unlock();
        if (const auto hThread = Release())
            hThread->Join();
        DestroyIf(m_bAutoDelete);
        return true;
    }
    Abandon();
    m_bOrphaned = m_bAutoDelete;
    lock.unlock(); // from here on the object may be gone
    LogError(MainLog(), "TerminateThread failed in %s:%d with error %d", SOURCE_FILE, TERMINATE_LINE,
             static_cast<int>(Platform::SYS_NOT_SUPPORTED));
    return true;
}

void CThread::Destroy(std::unique_ptr<CThread> pThread)
{
    if (!pThread)
        return;
    const std::unique_lock lock(pThread->m_handover);
    if (pThread->m_hThread && !pThread->m_finished.IsSet()) {
        pThread->m_stop.Set();
        pThread->Abandon();
    }
    pThread->m_bOrphaned = pThread->m_bAbandoned;
    if (pThread->m_bOrphaned)
        static_cast<void>(pThread.release()); // the thread's from here on
}

bool CThread::IsCallerAbandoned() { return AnyAbandoned() && t_pCurrent != nullptr && t_pCurrent->IsAbandoned(); }

bool CThread::IsAbandoned()
{
    const std::lock_guard lock(m_handover);
    return m_bAbandoned;
}

bool CThread::AnyAbandoned() { return s_nAbandoned != 0; }

void CThread::Procedure(void* pThread)
{
    auto* const pSelf = static_cast<CThread*>(pThread);
    pSelf->m_dwThreadID = Platform::CurrentThreadId(); // Body may ask before the creator has stored it
    std::srand(static_cast<unsigned>(Platform::NowSeconds()));
    pSelf->m_running.Set();
    t_pCurrent = pSelf;
    pSelf->Body();
    t_pCurrent = nullptr;
    pSelf->m_running.Reset();
    pSelf->End();
}

/// The thread lets go of its object. Whoever waits for the finished event finds everything else done.
void CThread::End()
{
    std::unique_lock lock(m_handover);
    const bool bAbandoned = std::exchange(m_bAbandoned, false);
    bool bDestroy = m_bOrphaned;
    if (!bAbandoned) {
        if (!m_stop.IsSet()) { // nobody is about to take the handle
            m_hThread.reset();
            m_dwThreadID = 0;
            bDestroy = m_bAutoDelete;
        }
        m_finished.Set();
    }
    lock.unlock();
    DestroyIf(bDestroy);
    if (bAbandoned)
        --s_nAbandoned;
}

/// With the handover lock held: the thread runs on without a controller.
void CThread::Abandon()
{
    m_bAbandoned = true;
    ++s_nAbandoned;
    m_hThread.reset();
    m_dwThreadID = 0;
    m_finished.Set();
}

std::unique_ptr<Platform::CNativeThread> CThread::Release()
{
    const std::lock_guard lock(m_handover);
    m_dwThreadID = 0;
    return std::exchange(m_hThread, nullptr);
}

void CThread::DestroyIf(bool bDestroy) { const std::unique_ptr<CThread> pSelf(bDestroy ? this : nullptr); }

} // namespace Bex
