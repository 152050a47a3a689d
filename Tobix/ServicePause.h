#pragma once

#include "Bex/CEvent.h"

/// Holds an agent's pass back while the service runs but is paused, or until its thread is asked to stop. Without a
/// service it never waits. Any thread.
void WaitWhileServiceIsPaused(const Bex::CEvent& stop);
