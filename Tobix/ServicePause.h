#pragma once

#include "Bex/CEvent.h"

/// Whether the service runs but is paused; false without a service. Any thread.
bool ServiceIsPaused();
/// Holds an agent's pass back while the service is paused, or until its thread is asked to stop.
void WaitWhileServiceIsPaused(const Bex::CEvent& stop);
