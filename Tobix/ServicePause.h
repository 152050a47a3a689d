#pragma once

#include "Bex/CEvent.h"

#include <functional>

bool ServiceIsPaused(); ///< and runs; never without a service. Any thread

/// Holds a worker's pass back while the service is paused, or until its thread is asked to stop; twice a second it does
/// what it is told to do meanwhile. Any thread.
void WaitWhileServiceIsPaused(
    const Bex::CEvent& stop, const std::function<void()>& Meanwhile = [] {});
