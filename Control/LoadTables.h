#pragma once

#include "Control/SOptions.h"

/// Reads the configuration, the users and every table that routes mail into the process-wide objects, as a daemon that
/// starts does. CControlError for what keeps a daemon from starting.
void LoadTables(const SOptions& options);

void LoadUsers(); ///< only the users, by the configuration that is loaded
