#pragma once

#include "Bex/CThread.h"

#include <functional>
#include <memory>

/// Starting and stopping the daemon's workers, with the log lines that go with it. The thread that controls the
/// workers calls these. The name is the worker's in the log, for instance "local delivery agent".
namespace ThreadControl {

/// False (logged) when the thread cannot be started; the worker stays constructed.
bool Start(Bex::CThread& thread, const char* pszName);

/// Asks the worker to stop and waits for it, about a minute at most; one that does not end is given up. Calls Report
/// while it waits. The pointer is null afterwards; false (logged) when it was before.
bool Stop(std::unique_ptr<Bex::CThread> pThread, const char* pszName, const std::function<void()>& Report);

} // namespace ThreadControl
