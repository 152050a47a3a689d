#pragma once

/// Whether the service runs but is paused; false without a service. Any thread.
bool ServiceIsPaused();
