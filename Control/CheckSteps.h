#pragma once

#include "Bex/CSimpleString.h"
#include "Control/CFindings.h"

/// The steps of a check; each needs what those before it have loaded into the process-wide tables. One thread.

/// False when it cannot be read: then nothing else can be checked.
bool CheckConfiguration(const Bex::CSimpleString& strPath, CFindings& findings);
void CheckDirectories(const Bex::CSimpleString& strPath, CFindings& findings); ///< the path is the configuration's
void CheckAccounts(CFindings& findings);
void CheckDomains(CFindings& findings);
void CheckAliases(CFindings& findings);
void CheckSmartHosts(CFindings& findings);
void CheckLists(CFindings& findings); ///< filters, intercepted addresses, masquerading
