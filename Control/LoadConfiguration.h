#pragma once

#include "Bex/CSimpleString.h"
#include "Control/SOptions.h"

/// Finds the configuration as the daemon does, and names its directory in this process's environment for everything
/// that asks ConfigDirectory: MAILCONFIGDIR as it is, else the directory of the file named by -c, else /etc/tobix.
/// Answers the path of the configuration's file. Once, before other threads are there.
Bex::CSimpleString FindConfiguration(const SOptions& options);

/// The same, and reads it into Config. CControlError when it cannot be read.
void LoadConfiguration(const SOptions& options);
