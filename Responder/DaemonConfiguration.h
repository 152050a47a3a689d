#pragma once

#include "Bex/CSimpleString.h"

/// Loads the configuration that the daemon handed over with its path, else the one in the configuration directory. The
/// path is that; false (Platform::LastError) when it cannot be loaded.
bool LoadDaemonConfiguration(Bex::CSimpleString& strPath);
