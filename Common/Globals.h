#pragma once

#include "Bex/CConfigFile.h"
#include "Common/CAliases.h"
#include "Common/CDomains.h"
#include "Common/CMailFilter.h"
#include "Common/CSmartHosts.h"
#include "Common/CUsers.h"
#include "Common/ConfigKeys.h"

inline constexpr char CONFIGURATION_FILE[] = "tobix.cfg"; ///< unless the command line names another
/// Of the environment: the path of the configuration that the daemon runs with, for the programs that it starts.
inline constexpr char CONFIGURATION_VARIABLE[] = "TOBIX_CONFIG";

/// The process-wide objects: made on first use, before any thread needs them, and alive until the process ends.
/// The configuration is written only while no agent runs; each table has its own lock.
Bex::CConfigFile& Config();
CDomains& LocalDomains();
CDomains& BackupDomains();
CAliases& Aliases();
CUsers& Users();
CMailFilter& Filters();
CSmartHosts& SmartHosts();
Bex::CStorableStringHash& Masquerading();

/// The configuration directory: the environment variable MAILCONFIGDIR; empty when it is not set.
Bex::CSimpleString ConfigDirectory();
