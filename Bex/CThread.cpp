#include "Bex/CThread.h"

#include "Bex/CAbandonment.h"
#include "Bex/CActivity.h"
#include "Bex/CException.h"
#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"

#include <cstdlib>
#include <utility>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CThread";
constexpr FrozenLine HANDLE_PRESENT_LINE = 101;
constexpr FrozenLine ID_PRESENT_LINE = 106;
constexpr FrozenLine CREATE_LINE = 118;
constexpr FrozenLine STOP_LINE = 151;
constexpr FrozenLine TERMINATE_LINE = 205;

std::atomic<unsigned> s_nAbandoned = 0;
thread_local CThread* t_pCurrent = nullptr; ///< whose body, or a part of whose work, the calling thread runs

} // namespace

CThread::CThread(bool bAutoDelete) : m_bAutoDelete(bAutoDelete) {}

CThread::~CThread()
{
    const std::lock_guard lock(m_lock); // once the ending thread is out of the object
    if (m_state == EState::Ended)
        m_hThread->Join();
}

bool CThread::Start(std::string_view name)
{
    std::unique_lock lock(m_lock); // the thread does not end, nor tell its id, before its handle is stored
    if (m_hThread) {
        LogError(MainLog(), "m_hThread != NULL in %s:%d", SOURCE_FILE, HANDLE_PRESENT_LINE);
        return false;
    }
    if (m_state == EState::GivenUp) {
        LogError(MainLog(), "m_dwThreadID != 0 in %s:%d", SOURCE_FILE, ID_PRESENT_LINE);
        return false;
    }
    m_running.Reset();
    m_stop.Reset();
    m_finished.Reset();
    m_strName = name;
    m_hThread = Platform::CNativeThread::Create(&Procedure, this);
    if (m_hThread) {
        m_state = EState::Running;
        return true;
    }
    const Platform::SError error = Platform::LastError();
    lock.unlock();
    const std::unique_ptr<CThread> pSelf(m_bAutoDelete ? this : nullptr);
    LogError(MainLog(), "_beginthreadex failed in %s:%d with error %d", SOURCE_FILE, CREATE_LINE,
             static_cast<int>(error.dwSysError));
    return false;
}

void CThread::RequestStop()
{
    m_stop.Set();
    m_running.Reset();
    OnStopRequest();
}

bool CThread::Stop(unsigned dwMillis)
{
    try {
        RequestStop();
        if (m_state != EState::Idle && !m_finished.Wait(dwMillis)) {
            LogError(MainLog(), "Wait timed out in %s:%d", SOURCE_FILE, STOP_LINE);
            return false;
        }
    } catch (const CException& exception) {
        char text[1000];
        exception.GetMessage(text, sizeof(text));
        LogError(MainLog(), "%s", text);
        return false;
    }
    LetGo();
    return true;
}

bool CThread::Terminate()
{
    std::unique_lock lock(m_lock);
    const EState state = m_state;
    if (state == EState::Idle || state == EState::GivenUp)
        return false;
    m_running.Reset();
    if (state == EState::Running)
        GiveUp(m_bAutoDelete);
    lock.unlock();
    if (state == EState::Ended)
        LetGo();
    else // the object may be gone by now
        LogError(MainLog(), "TerminateThread failed in %s:%d with error %d", SOURCE_FILE, TERMINATE_LINE,
                 static_cast<int>(Platform::SYS_NOT_SUPPORTED));
    return true;
}

unsigned CThread::Id() const
{
    const std::lock_guard lock(m_lock);
    return m_hThread ? m_hThread->Id() : 0;
}

void CThread::Destroy(std::unique_ptr<CThread> pThread)
{
    if (!pThread)
        return;
    const std::lock_guard lock(pThread->m_lock);
    if (pThread->m_state == EState::Running) {
        pThread->m_stop.Set();
        pThread->GiveUp(true);
    }
    if (pThread->m_state == EState::GivenUp) {
        pThread->m_bOrphaned = true;
        static_cast<void>(pThread.release()); // the thread's from here on
    }
}

CThread::CPart::CPart(CThread* pWorker) { t_pCurrent = pWorker; }

CThread::CPart::~CPart() { t_pCurrent = nullptr; }

CThread* CThread::Current() { return t_pCurrent; }

bool CThread::IsCallerAbandoned() { return t_pCurrent != nullptr && t_pCurrent->m_state == EState::GivenUp; }

void CThread::EndIfAbandoned()
{
    if (IsCallerAbandoned())
        throw CAbandonment();
}

bool CThread::IsCallerStopped()
{
    return t_pCurrent != nullptr && (t_pCurrent->m_stop.IsSet() || t_pCurrent->m_state == EState::GivenUp);
}

bool CThread::AnyAbandoned() { return s_nAbandoned != 0; }

void CThread::Procedure(void* pThread)
{
    auto* const pSelf = static_cast<CThread*>(pThread);
    std::srand(static_cast<unsigned>(Platform::NowSeconds()));
    pSelf->m_running.Set();
    t_pCurrent = pSelf;
    try {
        const CActivity activity(pSelf->m_strName);
        pSelf->Body();
    } catch (const CAbandonment&) { // everything is let go of by now
    }
    t_pCurrent = nullptr;
    pSelf->m_running.Reset();
    pSelf->End();
}

/// The thread lets go of its object. Whoever waits for the finished event finds everything else done.
void CThread::End()
{
    std::unique_ptr<CThread> pSelf;
    std::unique_lock lock(m_lock);
    const bool bGivenUp = m_state == EState::GivenUp;
    if (bGivenUp || !m_stop.IsSet()) { // nobody is about to take the handle
        m_hThread.reset();
        m_state = EState::Idle;
        if (bGivenUp ? m_bOrphaned : m_bAutoDelete)
            pSelf.reset(this);
    } else {
        m_state = EState::Ended;
    }
    m_finished.Set();
    lock.unlock();
    pSelf.reset();
    if (bGivenUp)
        --s_nAbandoned;
}

/// The controller lets go of a thread that has ended.
void CThread::LetGo()
{
    std::unique_ptr<CThread> pSelf;
    std::unique_lock lock(m_lock);
    if (m_state == EState::GivenUp)
        return;
    if (m_bAutoDelete)
        pSelf.reset(this);
    m_state = EState::Idle;
    const std::unique_ptr<Platform::CNativeThread> hThread = std::move(m_hThread);
    lock.unlock();
    if (hThread)
        hThread->Join(); // it has nothing left to do
}

/// With the lock held: the thread runs on without a controller.
void CThread::GiveUp(bool bOrphaned)
{
    m_state = EState::GivenUp;
    m_bOrphaned = bOrphaned;
    ++s_nAbandoned;
    CActivity::GiveUp(m_hThread->Id());
    m_hThread.reset();
    m_finished.Set();
}

} // namespace Bex
