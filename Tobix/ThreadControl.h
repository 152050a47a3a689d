#pragma once

#include "Bex/CException.h"
#include "Bex/CThread.h"
#include "Bex/Log.h"
#include "Platform/CWaitLimit.h"

#include <exception>
#include <functional>
#include <memory>

/// Starting and stopping the daemon's workers, with the log lines that go with it. The thread that controls the
/// workers calls these. The name is the worker's in the log, for instance "local delivery agent".
namespace ThreadControl {

/// False (logged) when the thread cannot be started; the worker stays constructed.
bool Start(Bex::CThread& thread, const char* pszName);

/// Has Make make the worker, and starts it. False (logged) when there is one already, which is kept; also when there is
/// none afterwards, as it could not be made or started.
template <class TWorker, class TMake>
bool Start(std::unique_ptr<TWorker>& pWorker, const char* pszName, TMake Make)
{
    if (pWorker) {
        Bex::LogError(Bex::MainLog(), "%s already instantiated", pszName);
        return false;
    }
    try {
        pWorker = Make();
    } catch (const Bex::CException&) {
    } catch (const std::exception&) {
    }
    if (!pWorker)
        Bex::LogError(Bex::MainLog(), "could not instantiate %s", pszName);
    else if (!Start(*pWorker, pszName))
        pWorker.reset();
    return pWorker != nullptr;
}

/// How long all workers that are stopped together may take.
inline constexpr uint64_t MOST_STOP_MILLIS = 61'000;

/// Asks the worker to stop and waits for it up to the limit; one that does not end is given up. Calls Report while it
/// waits. The pointer is null afterwards; false (logged) when it was before.
bool Stop(std::unique_ptr<Bex::CThread> pThread, const char* pszName, const Platform::CWaitLimit& limit,
          const std::function<void()>& Report);

} // namespace ThreadControl
