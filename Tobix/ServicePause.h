#pragma once

#include "Bex/CEvent.h"

bool ServiceIsPaused(); ///< and runs; never without a service. Any thread

/// Holds a worker's pass back while the service is paused, or until its thread is asked to stop. Any thread.
void WaitWhileServiceIsPaused(const Bex::CEvent& stop);
