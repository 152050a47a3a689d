#pragma once

#include "Bex/CThread.h"
#include "Platform/CWaitLimit.h"

#include <functional>
#include <memory>

/// Starting and stopping the daemon's workers, with the log lines that go with it. The thread that controls the
/// workers calls these. The name is the worker's in the log, for instance "local delivery agent".
namespace ThreadControl {

/// False (logged) when the thread cannot be started; the worker stays constructed.
bool Start(Bex::CThread& thread, const char* pszName);

/// How long all workers that are stopped together may take.
inline constexpr uint64_t MOST_STOP_MILLIS = 61'000;

/// Asks the worker to stop and waits for it up to the limit; one that does not end is given up. Calls Report while it
/// waits. The pointer is null afterwards; false (logged) when it was before.
bool Stop(std::unique_ptr<Bex::CThread> pThread, const char* pszName, const Platform::CWaitLimit& limit,
          const std::function<void()>& Report);

} // namespace ThreadControl
