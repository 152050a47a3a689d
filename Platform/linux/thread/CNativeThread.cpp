#include "Platform/CNativeThread.h"

#include "Platform/Errors.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/crash/CAlternateStack.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <pthread.h>
#include <unistd.h>
#include <utility>

namespace Platform {

namespace {

thread_local unsigned t_dwThreadId = 0;

/// The child of a fork runs on a thread of its own number.
[[maybe_unused]] const int s_iForkHandler = pthread_atfork(nullptr, nullptr, [] { t_dwThreadId = 0; });

/// Shared by the creator, which waits for the id, and the thread, which may outlast that wait or be outlasted.
struct SStart
{
    SStart(CNativeThread::Procedure theProcedure, void* pTheArgument) : procedure(theProcedure), pArgument(pTheArgument)
    {}
    CNativeThread::Procedure procedure;
    void* pArgument;
    std::atomic<unsigned> dwThreadId = 0;
    std::shared_ptr<SStart> pThreadsShare;
};

void* RunThread(void* pStart)
{
    const CAlternateStack stack;
    const std::shared_ptr<SStart> pShare = std::move(static_cast<SStart*>(pStart)->pThreadsShare);
    pShare->dwThreadId = CurrentThreadId();
    pShare->dwThreadId.notify_one();
    pShare->procedure(pShare->pArgument);
    return nullptr;
}

} // namespace

struct CNativeThread::SState
{
    pthread_t thread{};
    unsigned dwThreadId = 0;
    bool bOwned = true;
};

unsigned CurrentThreadId()
{
    if (t_dwThreadId == 0)
        t_dwThreadId = static_cast<unsigned>(gettid());
    return t_dwThreadId;
}

std::unique_ptr<CNativeThread> CNativeThread::Create(Procedure procedure, void* pArgument)
{
    auto pState = std::make_unique<SState>();
    const auto pStart = std::make_shared<SStart>(procedure, pArgument);
    pStart->pThreadsShare = pStart;
    const auto create = [&] {
        errno = pthread_create(&pState->thread, nullptr, RunThread, pStart.get());
        return errno == 0 ? 0 : -1;
    };
    if (GuardedCall({EFault::CreateThread}, create) != 0) {
        const int iErrno = errno;
        pStart->pThreadsShare.reset();
        SetLastError(CreationErrorFromErrno(iErrno));
        return nullptr;
    }
    pStart->dwThreadId.wait(0);
    pState->dwThreadId = pStart->dwThreadId;
    return std::unique_ptr<CNativeThread>(new CNativeThread(std::move(pState)));
}

CNativeThread::CNativeThread(std::unique_ptr<SState> pState) : m_pState(std::move(pState)) {}

CNativeThread::~CNativeThread() { Detach(); }

unsigned CNativeThread::Id() const { return m_pState->dwThreadId; }

void CNativeThread::Join()
{
    if (!m_pState->bOwned)
        return;
    pthread_join(m_pState->thread, nullptr);
    m_pState->bOwned = false;
}

void CNativeThread::Detach()
{
    if (!m_pState->bOwned)
        return;
    pthread_detach(m_pState->thread);
    m_pState->bOwned = false;
}

} // namespace Platform
